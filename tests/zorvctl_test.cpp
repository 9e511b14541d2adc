// The built zorvctl as a process: what it prints, its exit codes, and the files that it touches or leaves alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

#include "common/code_page.h"
#include "common/deployment.h"
#include "common/time.h"
#include "common/wide_to_utf8.h"
#include "jobs/task_scheduler_setting.h"
#include "platform/event_log.h"
#include "platform/task_scheduler.h"
#include "store/telemetry_db.h"
#include "support/file_server.h"
#include "support/notebook.h"
#include "upload/file_status.h"

namespace zorvalis {
namespace {

namespace fs = std::filesystem;

std::string transformed(std::string bytes) {
    for (char& byte : bytes) {
        byte = static_cast<char>(byte ^ deployment::DbKey);
    }
    return bytes;
}

// The bytes of a plain database.
std::string database(const std::string& sql) {
    initDB("x.db", sql);
    const std::string path = std::string(kDataFolder) + "x.db", bytes = transformed(read_text(path));
    platform::remove_file(path);
    return bytes;
}

TEST(ZorvctlShow, PrintsEachFormTellsBadFilesAndLeavesAllAsTheyWere) {
    const TestMachine machine;
    const std::string plain = database(
        "CREATE TABLE Small (a STRING, b INTEGER, c); INSERT INTO Small VALUES ('first', 1, NULL),"
        "('say \"hi\", you', NULL, 2.5), (CAST(x'41FF0A42' AS TEXT), -7, x'00FF');");
    std::string torn = plain;
    torn.replace(4096, 200, 200, '\x5C');
    const std::map<std::string, std::string> files = {
        {"small", transformed(plain)},
        {"plain", plain},
        {"wide", transformed(database("CREATE TABLE Wide AS SELECT zeroblob(99) AS c3, 'n' || value AS c4 "
                                      "FROM json_each('[58, 59, 60]')"))},
        {"empty", ""},
        {"torn", transformed(torn)},
    };
    for (const auto& [name, bytes] : files) {
        write_text(machine.bin_folder() + name, bytes);
    }
    const struct {
        const char *files, *options;
        int code;
        const char *output, *errors;  // pieces of them
    } cases[] = {
        {"small", "", 0,
         "\nSmall: 3 rows\na                 b  c\n-------------  ----  -------\nfirst             1  NULL\n"
         "say \"hi\", you  NULL  2.5\nA\\xFF\\nB         -7  X'00FF'\n",
         ""},
        {"plain", "--last 1 --columns b,a", 0, "\nSmall: 3 rows, the last 1\n b  a\n--  --------\n-7  A\\xFF\\nB\n",
         ""},
        {"small", "--csv", 0, "a,b,c\nfirst,1,\n\"say \"\"hi\"\", you\",,2.5\n\"A\\xFF\nB\",-7,X'00FF'\n", ""},
        {"small", "--json --last 2", 0,
         "\"Small\": [\n    {\"a\": \"say \\\"hi\\\", you\", \"b\": null, \"c\": 2.5},\n"
         "    {\"a\": \"A\\\\xFF\\nB\", \"b\": -7, \"c\": \"X'00FF'\"}]}}\n]\n",
         ""},
        {"small wide", "--table Wide --last 2", 0, "Wide: 3 rows, the last 2\n", ""},
        {"wide", "--columns c4,c3", 0, "\nc4  n58", ""},
        {"empty small", "", 1, "Small: 3 rows", "empty is empty"},
        {"torn small", "", 1, "Small: 3 rows", "torn is damaged"},
        {"absent small", "", 1, "Small: 3 rows", "absent does not exist"},
        {"small", "--columns absent,a", 2, "first", "absent; there are: a b c"},
        {"small", "--sqlite plain", 2, "", "not overwritten"},
    };
    const fs::path before = fs::current_path();
    fs::current_path(machine.bin_folder());
    for (const auto& each : cases) {
        const std::string arguments = std::string("show ") + each.files + " " + each.options;
        const ToolResult result = run_zorvctl(arguments);
        EXPECT_EQ(result.code, each.code) << arguments << ": " << result.errors;
        EXPECT_NE(result.output.find(each.output), std::string::npos) << arguments << "\n" << result.output;
        EXPECT_NE(result.errors.find(each.errors), std::string::npos) << arguments << ": " << result.errors;
    }
    for (const auto& [name, bytes] : files) {
        EXPECT_EQ(read_text(machine.bin_folder() + name), bytes) << name;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), files.size());
    EXPECT_EQ(run_zorvctl("show small --sqlite out").code, 0);
    EXPECT_EQ(read_text(machine.bin_folder() + "out"), plain);
    fs::current_path(before);
}

TEST(ZorvctlRegistry, SetsReadsListsAndDeletes) {
    const TestMachine machine;
    const struct {
        const char* arguments;
        int code;
        const char* output;
    } steps[] = {
        {"get product Text", 1, ""},
        {"set product Text \"some text\"", 0, ""},
        {"set product Number 0xFFFFFFFF --dword", 0, ""},
        {"get HKEY_LOCAL_MACHINE/software/Zorv/Zorvcore/Zorvalis text", 0, "some text\n"},
        {"get SOFTWARE/Zorv/Zorvcore/Zorvalis/ Number", 0, "4294967295\n"},
        {"list product", 0,
         "HKEY_LOCAL_MACHINE\\SOFTWARE\\Zorv\\Zorvcore\\Zorvalis\n    Number  REG_DWORD  4294967295\n"
         "    Text    REG_SZ     some text\n"},
        {"delete SOFTWARE/Zorv/Zorvcore --all", 1, ""},
        {"delete product Text", 0, ""},
        {"delete product --all", 0, ""},
        {"list product", 1, ""},
    };
    for (const auto& step : steps) {
        const ToolResult result = run_zorvctl(std::string("registry ") + step.arguments);
        EXPECT_EQ(result.code, step.code) << step.arguments << ": " << result.errors;
        EXPECT_EQ(result.output, step.output) << step.arguments;
        EXPECT_EQ(result.errors.empty(), step.code == 0) << step.arguments;
    }
}

TEST(ZorvctlUploads, SayHowFarEachFileIsNewestLastAndChangeNothing) {
    TestMachine machine;
    machine.setting(R"({"version": "2.0.6.0", "upload": "m60", "intervalTimer": "0", "totalCollectTime": "999"})");
    SetValue(L"MainSwitch", L"1");
    EXPECT_TRUE(run_zorvctl("uploads").output.starts_with("no file has been registered"));
    SetValue(L"upload", std::to_wstring(platform::now_seconds() - 3000));
    Register("young", 3, NowTimeString().substr(0, 10));
    Register("halfway", 1, "2020-01-05");
    for (int i = 0; i < 9; ++i) {
        Register("old" + std::to_string(i), 2, "2020-01-04");
    }
    ChangeRows(
        "UPDATE FILESTATUS SET FILE_TRY_COUNT = 24 WHERE FILE_NAME = 'old8'; UPDATE FILESTATUS SET FILE_STATUS = 3, "
        "FILE_SIZE = 8000, FILE_UPLOAD_BYTES = 4000, FILE_TRY_COUNT = 3, FILE_SERVER_RESPONSE = 'BUSY', "
        "FILE_UPLOAD_STATUS = 4, FILE_UPLOAD_STAGE = 'uploading complete' "
        "WHERE FILE_NAME = 'halfway'");
    const std::string path = std::string(kDataFolder) + kStatusDb, before = read_text(path);
    const std::string output = run_zorvctl("uploads").output;
    const char* const pieces[] = {
        "old1\n",
        "old8\n",
        "given up",
        "halfway\n    timed samples, ",
        "failed, tried again\n    [##########....",
        "] 50% of 8000 bytes, try 3 of 24\n    last answer: BUSY\n",
        "last attempt: 1900-01-01 00:00:00, a piece of it was not taken: the server answered BUSY\n",
        "young\n    hardware events",
        "The newest 10 of 11 files",
        "Next upload: in 10 minutes, "};
    std::size_t at = 0;
    for (const char* piece : pieces) {
        at = output.find(piece, at);
        EXPECT_NE(at, std::string::npos) << piece << "\n" << output;
        at = at == std::string::npos ? 0 : at;
    }
    EXPECT_NE(run_zorvctl("uploads --all").output.find("old0"), std::string::npos);
    EXPECT_EQ(machine.data_files(), std::vector<std::string>{kStatusDb});
    EXPECT_EQ(read_text(path), before);
}

TEST(ZorvctlSettings, SayWhichFileRulesAndWhatItMeans) {
    const struct {
        const char *stored, *mainSwitch;
        int code;
        const char* text;  // a piece of what is said, in output or errors
    } cases[] = {
        {"", "1", 0, "the default, since none from the server is stored"},
        {R"({"version": "2.0.6.0"})", "0", 0, "default.json\nrules   the default, since the user has switched it off"},
        {R"({"version": "2.0.6.0"})", "2", 0, "\"2\" is neither on nor off"},
        {R"({"version": "2.0.6.0"})", "1", 0, "setting.json\nrules   the server's"},
        {R"({"version": "2.0.6.0", "thermal": "m60"})", "1", 0, "fans every hour        in 10 minutes, "},
        {R"({"version": "2.0.6.0", "ac_dc": "AC_DC"})", "1", 0, "AC_DC           off: mains"},
        {R"({"version": "2.0.6.0", "intervalTimer": "3"})", "1", 0, "pauses until "},
        {R"({"version": )", "1", 1, "setting.json is no JSON"},
        {R"({"version": "2.0.6.0", "intervalTimer": "x"})", "1", 1, "no number under intervalTimer"},
    };
    for (const auto& each : cases) {
        TestMachine machine;
        machine.ready();
        if (*each.stored != '\0') {
            machine.setting(each.stored);
        }
        SetValue(L"MainSwitch", Utf82Unicode(each.mainSwitch));
        SetValue(L"GetThermal", std::to_wstring(platform::now_seconds() - 3000));
        SetValue(L"lastDojobTime", std::to_wstring(platform::now_seconds() - 2 * 86400));
        const ToolResult result = run_zorvctl("settings");
        EXPECT_EQ(result.code, each.code) << each.stored;
        EXPECT_NE((result.output + result.errors).find(each.text), std::string::npos) << each.stored << "\n"
                                                                                      << result.output << result.errors;
        const ToolResult json = run_zorvctl("settings --json");
        EXPECT_EQ(json.code, each.code);
        if (each.code == 0) {
            const std::string why = ParseJson(json.output)["why"];
            EXPECT_NE(result.output.find("rules   " + why + "\n"), std::string::npos) << why;
        }
    }
}

#ifndef _WIN32
// From now on, for every process of the machine.
void MoveClock(std::int64_t to) {
    platform::set_clock({});
    write_text(platform::machine_folder() + "/clock.json",
               "{\"offset\": " + std::to_string(to - std::time(nullptr)) + "}");
}

// From that time on, every five minutes.
void RegisterTask(std::int64_t time, const std::string& path) {
    std::tm local{};
    platform::local_time(time, local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    platform::ScheduledTask task;
    std::tie(task.start_boundary, task.interval, task.path, task.arguments) = std::tuple(text, "PT5M", path, "-j0");
    platform::register_task(WideToUtf8(kCollectionTask), task);
}

// Every file of the machine, with its bytes.
std::map<std::string, std::string> Snapshot() {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(platform::machine_folder())) {
        if (entry.is_regular_file() && entry.path().parent_path().filename() != "bin") {
            files[entry.path().string()] = read_text(entry.path().string());
        }
    }
    return files;
}

struct Answer {
    int code;
    std::int64_t next = 0;  // 0 for none
    std::string text;
};

// What `zorvctl status` says, which changes nothing, and the views of it say too.
Answer Ask(const std::string& name, const std::string& tool = built("zorvctl")) {
    const auto before = Snapshot();
    const ToolResult result = run_zorvctl("status --json", tool);
    EXPECT_EQ(Snapshot(), before) << name;
    const Json all = ParseJson(result.output);
    EXPECT_EQ(all["exitCode"], result.code) << name;
    const std::string verdict = all["verdict"];
    const ToolResult settings = run_zorvctl("settings --json", tool);
    if (settings.code == 0) {
        EXPECT_EQ(ParseJson(settings.output)["nextPass"], all["nextPass"]) << name;
        EXPECT_EQ(ParseJson(settings.output)["exitCode"], result.code) << name;
    } else {
        EXPECT_NE(verdict.find(settings.errors.substr(9, 40)), verdict.npos) << name << settings.errors << verdict;
    }
    return {result.code, all["nextPass"].is_null() ? 0 : all["nextPass"].get<std::int64_t>(), result.output};
}

// Lets a pass run at that time. Whether it stored a sample.
bool Stores(const Notebook& machine, std::int64_t time) {
    const auto samples = [&] {
        std::map<std::string, std::string> found;
        for (const std::string& rows : SplitString(machine.stored(), ',')) {
            found[rows.substr(0, rows.rfind(' '))] = rows;
        }
        return found;
    };
    MoveClock(time);
    const auto before = samples();
    EXPECT_EQ(std::system(("\"" + machine.executable() + "\" -j0").c_str()), 0);
    const auto after = samples();
    return after != before && !after.empty();
}

// Lets passes run as the task starts them, but a day apart where it goes on every five minutes, up to the one that
// stores something.
void ExpectWhatPassesDo(const std::string& name, const Notebook& machine, std::int64_t time, const Answer& said) {
    bool stored = false;
    for (int passes = 0; !stored && passes < 100; ++passes) {
        stored = Stores(machine, time);
        ASSERT_EQ(stored, said.next != 0 && time >= said.next) << name << " " << time - said.next << said.text;
        platform::RegisteredTask task;
        platform::find_task(WideToUtf8(kCollectionTask), time + 1, task);
        if (said.next == 0) {
            return;
        }
        if (task.next_start <= time + 300) {  // not put off
            const std::int64_t later = std::max(std::min(time + 86400, said.next), time + 1);
            platform::find_task(WideToUtf8(kCollectionTask), later, task);
        }
        time = task.next_start;
    }
    EXPECT_TRUE(stored) << name;
}

TEST(Zorvctl, SaysWhatPassesDoOnBrokenMachines) {
    constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0", kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3", kTaipei[] = "CST-8",
                   kLordHowe[] = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";
    constexpr char kOneMonth[] = R"({"totalCollectTime": "1"})", kActivated[] = "2026-05-11 12:00:00",
                   kLater[] = "2026-06-13 12:00:00",
                   kNoKinds[] = R"({"thermal": "", "systeminfo": null, "battery_power": null})";
    static constexpr wchar_t kOld[] = L"2026/1/5", kFake[] = L"FakeManufacturingDate";
    using Break = void (*)(Notebook&);
    using Values = std::vector<std::pair<const wchar_t*, std::wstring>>;
    struct State {
        const char* name;
        const char* zone;
        int month, day, hour, minute;  // of 2026
        int code;
        bool again;                   // whether it names a pass that stores something
        const char* words;            // a piece of what it says
        Values values = {};           // under the product's key
        const char* settings = "{}";  // merged into the usual ones
        const wchar_t* made = kOld;
        const char* activated = "blank";
        const char* chassis = "Notebook";
        const wchar_t* image = L"IMAGE_STATE_COMPLETE";
        Break breaks = nullptr;
        bool own = false;  // with a tool beside the machine's own service and library
    };
    const auto midnight = [](const char* zone, int month, int day) {
        const TimeZone there(zone);
        return std::to_wstring(SetClock(2026, month, day, 0));
    };
    const std::wstring saturday = midnight(kNewYork, 10, 31), longDay = midnight(kNewYork, 11, 1),
                       shortDay = midnight(kNewYork, 3, 8), halfHour = midnight(kLordHowe, 4, 5),
                       tuesday = midnight(kBerlin, 6, 9), far = std::to_wstring(std::stoll(tuesday) + 400 * 86400),
                       week = std::to_wstring(std::stoll(tuesday) + 7 * 86400),
                       autumn = std::to_wstring(std::stoll(midnight(kBerlin, 10, 25)) + 43200),
                       noon = std::to_wstring(std::stoll(tuesday) + 43200);
    static const auto put = [](const std::string& path) {
        fs::remove_all(path);
        write_text(path, "");
    };
    static const auto data = [] { return platform::native_path(std::string(kDataFolder)); };
    const auto state = [&](const char* name, int code, bool again, const char* words, Break breaks, bool own = false) {
        State one = {name, kBerlin, 6, 10, 12, 0, code, again, words};
        one.breaks = breaks;
        one.own = own;
        return one;
    };
    const Values none;
    const auto only = [](const wchar_t* name, const std::wstring& text) { return Values{{name, text}}; };
    const auto timers = [](const std::wstring& time) {
        return Values{{L"GetThermal", time}, {L"GetBatteryPower", time}, {L"GetSystemInfo", time}};
    };
    const State states[] = {
        {"made long ago", kBerlin, 6, 10, 12, 0, 0, true, "2026/1/5, the factory's date, 156 days"},
        {"another version's settings", kBerlin, 6, 10, 12, 0, 0, true, "for version 1", none, R"({"version": "1"})"},
        {"some kinds", kBerlin, 6, 10, 12, 0, 0, true, "no period", none, R"({"thermal": "m7", "systeminfo": null})"},
        {"no kinds", kBerlin, 6, 10, 12, 0, 1, false, "no such key", none, kNoKinds},
        {"switched off", kBerlin, 6, 10, 12, 0, 1, false, "switched it off", only(L"MainSwitch", L"0")},
        {"an empty switch", kBerlin, 6, 10, 12, 0, 1, false, "neither on nor off", only(L"MainSwitch", L"")},
        {"another chassis", kBerlin, 6, 10, 12, 0, 1, false, "Desktop", none, "{}", kOld, "blank", "Desktop"},
        {"in the factory", kBerlin, 6, 10, 12, 0, 1, false, "OOBE", none, "{}", kOld, "blank", "Notebook", L"X_OOBE"},
        {"younger than a week", kBerlin, 6, 10, 12, 0, 1, true, "no older than a week", none, "{}", L"2026/6/8"},
        {"to be made", kBerlin, 6, 10, 12, 0, 1, true, "only in the future", none, "{}", L"2026/6/13"},
        {"no date", kTaipei, 6, 10, 3, 0, 1, true, "no date of manufacture", none, "{}", L"soon"},
        {"no numbers", kBerlin, 6, 10, 12, 0, 1, false, "every pass fails", none, "{}", L"a/b/c"},
        {"numbers out of range", kBerlin, 6, 10, 12, 0, 1, false, "out of range", none, "{}", L"99999999999/1/1"},
        {"no such day", kBerlin, 6, 10, 12, 0, 1, false, "begin on no day", none, "{}", L"2026/2/30"},
        {"no such month", kBerlin, 6, 10, 12, 0, 1, false, "begin on no day", none, "{}", L"2024/13/01"},
        {"a trailing blank", kBerlin, 6, 10, 12, 0, 0, true, "2026/1/5 , the factory's", none, "{}", L"2026/1/5 "},
        {"a substitute", kBerlin, 6, 10, 12, 0, 0, true, "substitute", only(kFake, L"2026/6/1"), "{}", L"soon"},
        {"over", kBerlin, 6, 10, 12, 0, 1, false, "are over", none, R"({"totalCollectTime": "3"})"},
        {"no months", kBerlin, 6, 10, 12, 0, 1, false, "no number", none, R"({"totalCollectTime": "many"})"},
        {"no pause", kBerlin, 6, 10, 12, 0, 1, false, "no intervalTimer", none, R"({"intervalTimer": null})"},
        {"no day", kBerlin, 6, 10, 12, 0, 1, false, "delete product lastDojobTime", only(L"lastDojobTime", L"soon")},
        {"wrong types", kBerlin, 6, 10, 12, 0, 1, false, "no text under ac_dc", none, R"({"thermal": 5, "ac_dc": []})"},
        {"one wrong type", kBerlin, 6, 10, 12, 0, 0, true, "under downloadSetting", none, R"({"downloadSetting": 1})"},
        {"a timer that waits", kBerlin, 6, 9, 12, 9, 0, true, "in 2 minutes", only(L"GetBatteryPower", noon)},
        {"a timer of tomorrow", kBerlin, 6, 8, 12, 0, 0, true, "upload lies in the future", only(L"upload", noon)},
        {"a download's", kBerlin, 6, 9, 12, 0, 0, true, "no settings are downloaded", only(L"getSettingFile", L"soon")},
        {"a wild timer", kBerlin, 6, 9, 12, 0, 0, true, "Thermal lies in", only(L"GetThermal", L"9000000000000000000")},
        {"timers a week ahead", kBerlin, 6, 9, 12, 0, 1, true, "delete product GetSystemInfo", timers(week)},
        {"timers far ahead", kBerlin, 6, 9, 12, 0, 1, false, "delete product GetSystemInfo", timers(far)},
        {"a timer without a number", kBerlin, 6, 9, 12, 0, 1, false, "product upload`", only(L"upload", L"abc")},
        {"a pause", kBerlin, 6, 10, 12, 0, 1, true, "day of pause", only(L"lastDojobTime", tuesday)},
        {"a pause to the 25th hour", kNewYork, 11, 1, 0, 20, 1, true, "pause", only(L"lastDojobTime", saturday)},
        {"after 24 of 25 hours", kNewYork, 11, 1, 23, 30, 1, true, "pause", only(L"lastDojobTime", longDay)},
        {"within 24 hours", kNewYork, 3, 9, 0, 30, 0, true, "today", only(L"lastDojobTime", shortDay)},
        {"half an hour", kLordHowe, 4, 5, 23, 45, 1, true, "pause", only(L"lastDojobTime", halfHour)},
        {"a short week", kBerlin, 3, 30, 0, 30, 1, true, "no older than a week", none, "{}", L"2026/3/23"},
        {"a long week", kBerlin, 10, 25, 23, 30, 0, true, "today", only(L"lastDojobTime", autumn), "{}", L"2026/10/19"},
        {"the 25th hour begins no day", kBerlin, 10, 25, 23, 30, 1, true, "pause"},
        {"a month ends at midnight UTC", kNewYork, 10, 31, 20, 1, 1, false, "are over", none, kOneMonth, L"2026/10/2"},
        {"not before", kNewYork, 10, 31, 19, 58, 0, true, "until 2026/10/31", none, kOneMonth, L"2026/10/2"},
        {"activated", kTaipei, 6, 10, 11, 58, 0, true, "wins over", none, kOneMonth, L"2025/1/5", kActivated},
        {"activated too long ago", kTaipei, 6, 10, 12, 1, 1, false, "over", none, kOneMonth, L"2026/6/1", kActivated},
        {"activated in a time to come", kTaipei, 6, 10, 12, 1, 1, true, "only in the future", none, "{}", kOld, kLater},
        state(
            "no library", 1, false, "library is missing", [](Notebook& m) { m.remove_library(); }, true),
        state(
            "a damaged library", 1, false, "cannot be loaded",
            [](Notebook& m) { write_text(m.bin_folder() + "ZorvWinIo64.so", "junk"); }, true),
        state(
            "no default settings", 1, false, "default.json should rule",
            [](Notebook& m) {
                fs::remove(m.bin_folder() + "default.json");
                platform::remove_file(std::string(kProductFolder) + "setting.json");
            },
            true),
        state("half a setting file", 1, false, "is no JSON",
              [](Notebook&) { write_text(std::string(kProductFolder) + "setting.json", "{"); }),
        state("a file for a folder", 1, false, "is a file where",
              [](Notebook&) { put(data().erase(data().size() - 1)); }),
        state("a link for a folder", 1, false, "leads through a link",
              [](Notebook& m) {
                  fs::create_directory(m.bin_folder() + "else");
                  fs::create_directory_symlink(m.bin_folder() + "else", data().erase(data().size() - 1));
              }),
        state("a damaged file of the month", 0, true, "deletes all files of the folder",
              [](Notebook&) {
                  fs::create_directory(data());
                  write_text(kDataFolder + FileOf("O"), std::string(5000, 'x'));
              }),
        state("a folder for a file", 1, false, "of its own",
              [](Notebook&) { fs::create_directories(data() + FileOf("O")); }),
        state(
            "no key for timers", 1, false, "no timer can be set",
            [](Notebook&) { put(platform::machine_folder() + "/registry/HKEY_LOCAL_MACHINE/SOFTWARE/Zorv/Zorvcore"); }),
        state("a plain file", 0, true,
              R"("state":"warning","why":"damaged: O_)",  // a pass transforms it like any other
              [](Notebook&) {
                  const std::string bytes = database("CREATE TABLE Thermal (a);");
                  write_text(kDataFolder + FileOf("O"), bytes);
              }),
        state("full tables", 1, true, "full until the month changes: O Thermal (97), O Battery_Power (289), O SysInfo",
              [](Notebook&) {
                  for (const auto& [table, rows] : {std::pair("Thermal", 97), {"Battery_Power", 289}, {"SysInfo", 2}}) {
                      initDB(FileOf("O"), std::string("CREATE TABLE ") + table +
                                              " AS WITH RECURSIVE c(a) AS (SELECT 1 "
                                              "UNION SELECT a + 1 FROM c LIMIT " +
                                              std::to_string(rows) + ") SELECT a FROM c");
                  }
              }),
    };
    [[maybe_unused]] std::size_t count = 0;
    for (const State& one : states) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)  // slow, and looking for what all machines share
        if (count++ % 4 != 0) {
            continue;
        }
#endif
        const TimeZone zone(one.zone);
        Notebook machine;
        machine.install_service();
        machine.change_hardware(std::string(R"({"GPNV_ActivatedTime": ")") + one.activated +
                                R"(", "WMIGetSystemChassisTypes": ")" + one.chassis + "\"}");
        write_text(platform::machine_folder() + "/hardware.json", read_text(machine.bin_folder() + "hardware.json"));
        machine.default_setting(read_text(built("default.json")));  // the tool takes the one beside itself
        const std::string stored = std::string(kProductFolder) + "setting.json";
        Json settings = ParseJson(read_text(stored));
        settings.merge_patch(ParseJson(one.settings));
        machine.setting(DumpJson(settings));
        WriteRegString(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate", one.made);
        WriteRegString(kLocalMachine, kSetupStateKey, L"ImageState", one.image);
        for (const auto& [name, text] : one.values) {
            SetValue(name, text);
        }
        const std::int64_t now = SetClock(2026, one.month, one.day, one.hour, one.minute);
        RegisterTask(now, machine.executable());
        if (one.breaks != nullptr) {
            one.breaks(machine);
        }
        std::string tool = built("zorvctl");
        if (one.own) {
            fs::copy_file(tool, machine.bin_folder() + "zorvctl");
            tool = machine.bin_folder() + "zorvctl";
        }
        MoveClock(now - 30);  // so long may asking take
        Answer said = Ask(one.name, tool);
        EXPECT_EQ(said.code, one.code) << one.name << said.text;
        EXPECT_EQ(said.next != 0, one.again) << one.name << said.text;
        EXPECT_NE(said.text.find(one.words), std::string::npos) << one.name << said.text;
        ExpectWhatPassesDo(one.name, machine, now, said);
        if (one.code == 0) {  // what comes next
            const std::int64_t then = said.next;
            said = Ask(one.name);
            ExpectWhatPassesDo(one.name, machine, then, said);
        }
    }
}

// What holds passes back, and what only this caller may not see.
TEST(Zorvctl, KnowsTheTaskAndTheRightsOfItsCaller) {
    Notebook machine;
    const std::string task = platform::machine_folder() + "/tasks/" + WideToUtf8(kCollectionTask) + ".json";
    fs::create_directory(platform::native_path(std::string(kDataFolder)));
    EXPECT_NE(Ask("none").text.find("no scheduled task starts passes"), std::string::npos);
    RegisterTask(platform::now_seconds() + 290, machine.install_service());  // so long may asking take
    EXPECT_EQ(Ask("there").code, 0);
    EXPECT_NE(Ask("no runner").text.find("nobody starts the scheduled tasks"), std::string::npos);
    const std::string folder = platform::native_path(std::string(kDataFolder)), tool = machine.bin_folder() + "zorvctl";
    fs::copy_file(built("zorvctl"), tool);  // the build may lie where nobody else can read
    fs::permissions(folder, fs::perms::none);
    const bool root = ::geteuid() == 0;
    const std::string other = (root ? "setpriv --reuid 65534 --clear-groups \"" : "\"") + tool + "\" status >/dev/null";
    EXPECT_EQ(std::system(other.c_str()) >> 8, 2);
    fs::permissions(folder, fs::perms::owner_all);
    Register("O_failed", 1, "2026-01-05");
    Register("O_sent", 1, "2026-01-05");
    ChangeRows(
        "UPDATE FILESTATUS SET FILE_STATUS = 3, FILE_UPLOAD_STATUS = 4, FILE_UPLOADED_TIME = '2026-01-07'; UPDATE "
        "FILESTATUS SET FILE_STATUS = 1, FILE_UPLOADED_TIME = '2026-01-06' WHERE FILE_NAME = 'O_sent'");
    const std::string failed = Ask("an upload").text;
    EXPECT_NE(failed.find(R"("state":"warning","why":"2026-01-07, O_failed: )"), std::string::npos) << failed;
    EXPECT_NE(failed.find("; with warnings: service, runner, "), std::string::npos) << failed;
    for (const char* piece : {"\"enabled\": true", "zorvalis-agent-service", "-j0"}) {
        std::string text = read_text(task);
        text.replace(text.find(piece), std::strlen(piece), piece[0] == '\"' ? "\"enabled\": false" : "-j1");
        const std::string whole = read_text(task);
        write_text(task, text);
        EXPECT_EQ(Ask(piece).code, 1) << piece;
        write_text(task, whole);
    }
    write_text(task, "{");
    EXPECT_EQ(Ask("broken").code, 1);
}

TEST(ZorvctlMachine, IsMadeOnce) {
    const TestMachine outer;
    const std::string folder = outer.bin_folder() + "m";
    ::setenv("ZORV_MACHINE", folder.c_str(), 1);
    EXPECT_EQ(run_zorvctl("status --json").code, 2);
    const ToolResult made = run_zorvctl("machine init --manufactured 2026/1/2 \"" + folder + "\"");
    EXPECT_EQ(made.code, 0) << made.errors;
    EXPECT_EQ(read_text(folder + "/hardware.json").find('{'), 0U);
    EXPECT_EQ(run_zorvctl("registry get SOFTWARE/Zorv/FactoryConfig ManufacturingDate").output, "2026/1/2\n");
    EXPECT_NE(run_zorvctl("machine status").output.find("no scheduled task starts passes"), std::string::npos);
    EXPECT_EQ(run_zorvctl("machine init").code, 1);
    EXPECT_EQ(run_zorvctl("machine init --manufactured 2026-01-02").code, 2);
}

TEST(ZorvctlTrace, TurnsTheSessionOnAndOffAndReadsTheLogs) {
    const TestMachine machine;
    const std::string folder = platform::machine_folder();
    EXPECT_EQ(run_zorvctl("trace --no-follow --level 3").code, 0);
    EXPECT_EQ(read_text(folder + "/trace.json"), "{\"level\": 3, \"flags\": 1}\n");
    EXPECT_EQ(run_zorvctl("trace --off").code, 0);
    EXPECT_EQ(run_zorvctl("trace --off").code, 1);
    write_text(folder + "/trace.log", "86400.500000\t42\t10\ta\\tb\\\\c\\nd\n");
    const std::string traced = run_zorvctl("trace --all --seconds 0.001").output;
    EXPECT_NE(traced.find(":00.500  42  a\\tb\\c\n    d\n"), std::string::npos) << traced;
    for (const wchar_t* text : {L"\"", L"\\", L"\n", L"second"}) {
        platform::report_event(L"Zorvalis", platform::kEventInformation, L"Zorvalis", text);
    }
    const std::string log = run_zorvctl("log").output;
    EXPECT_EQ(std::count(log.begin(), log.end(), 'Z'), 4) << log;
    EXPECT_NE(log.find("Information  Zorvalis  second\n"), std::string::npos);
}
#endif

}  // namespace
}  // namespace zorvalis
