// The built zorvctl as a process: what it prints, its exit codes, and the files that it touches or leaves alone.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>

#include "common/code_page.h"
#include "common/deployment.h"
#include "common/time.h"
#include "common/wide_to_utf8.h"
#include "platform/event_log.h"
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
        {"small", "--columns absent,a", 1, "first", "absent; there are: a b c"},
        {"small", "--sqlite plain", 1, "", "not overwritten"},
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
        "FILE_SIZE = 8000, FILE_UPLOAD_BYTES = 4000, FILE_TRY_COUNT = 3, FILE_SERVER_RESPONSE = 'BUSY' "
        "WHERE FILE_NAME = 'halfway'");
    const std::string path = std::string(kDataFolder) + kStatusDb, before = read_text(path);
    const std::string output = run_zorvctl("uploads").output;
    const char* const pieces[] = {"old1\n",
                                  "old8\n",
                                  "given up",
                                  "halfway\n    timed samples, ",
                                  "failed, tried again\n    [##########....",
                                  "] 50% of 8000 bytes, try 3 of 24\n    last answer: BUSY\n",
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

constexpr const char* kTimed[] = {"thermal", "battery_power", "systeminfo", "upload"};

// What the tool says that the next pass does: the kinds as the letters of their keys, "tbsu" for all. And when one does
// something again, 0 for never.
struct Said {
    std::string kinds;
    std::int64_t next = 0;
};

Said Ask() {
    const ToolResult settings = run_zorvctl("settings --json");
    if (settings.code != 0) {
        return {};
    }
    const Json all = ParseJson(settings.output), keys = all["keys"];
    if (const std::string heldBack = all["heldBack"]; !heldBack.empty()) {
        return {"", heldBack.find("pause") == heldBack.npos ? 0 : keys["intervalTimer"]["next"].get<std::int64_t>()};
    }
    Said said;
    for (const char* key : kTimed) {
        if (const Json& at = keys[key]["next"]; at.is_number()) {
            const std::int64_t next = at;
            said.kinds += next <= platform::now_seconds() ? std::string(1, key[0]) : "";
            said.next = said.next == 0 ? next : std::min(said.next, next);
        }
    }
    return said;
}

// Lets a pass run. The kinds that it did: new rows, and for the upload a new time.
std::string Pass(const Notebook& machine) {
    const auto traces = [&] {
        std::map<char, std::string> found = {{'u', WideToUtf8(Value(L"upload"))}};
        for (const std::string& rows : SplitString(machine.stored(), ',')) {
            found[static_cast<char>(std::tolower(rows[rows.find("O ") + 2]))] += rows;
        }
        return found;
    };
    auto before = traces();
    EXPECT_EQ(std::system(("\"" + machine.executable() + "\" -j0").c_str()), 0);
    auto after = traces();
    std::string kinds;
    for (const char* key : kTimed) {
        kinds += before[key[0]] != after[key[0]] ? std::string(1, key[0]) : "";
    }
    return kinds;
}

// The other commands say the same.
void ExpectOneAnswer(const std::string& name, bool collects) {
    const ToolResult settings = run_zorvctl("settings"), status = run_zorvctl("machine status");
    EXPECT_EQ(status.code == 0, collects) << name << status.output;
    const std::string mark = "held back: ";
    const std::size_t at = settings.output.find(mark);
    const std::string why = collects             ? "held back"
                            : settings.code != 0 ? settings.errors.substr(9)
                                                 : settings.output.substr(at + mark.size());
    EXPECT_EQ(settings.output.find("1900"), std::string::npos) << name << settings.output;
    EXPECT_EQ(settings.code == 0 && at == std::string::npos, collects) << name << settings.output;
    for (const std::string& other : {status.output, run_zorvctl("uploads").output}) {
        EXPECT_EQ(other.find(why.substr(0, why.find_last_not_of(".\n") + 1)) != other.npos, !collects) << name << other;
    }
}

TEST(Zorvctl, SaysWhatAPassDoes) {
    constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0", kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3", kTaipei[] = "CST-8",
                   kLordHowe[] = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";
    constexpr char kOneMonth[] = R"({"totalCollectTime": "1"})", kActivated[] = "2026-05-11 12:00:00";
    static constexpr wchar_t kOld[] = L"2026/1/5";
    struct State {
        const char* name;
        const char* zone;
        int month, day, hour, minute;  // of 2026
        const char* does;              // which kinds
        const char* then;              // and at the time that the tool names next; "-" when it names none
        const wchar_t* made = kOld;
        const char* settings = "{}";  // merged into the usual ones
        std::vector<std::pair<const wchar_t*, std::wstring>> values = {};
        const char* activated = "blank";
        const char* chassis = "Notebook";
        const wchar_t* image = L"IMAGE_STATE_COMPLETE";
    };
    const auto midnight = [](const char* zone, int month, int day) {
        const TimeZone there(zone);
        return std::to_wstring(SetClock(2026, month, day, 0));
    };
    const std::wstring saturday = midnight(kNewYork, 10, 31), longDay = midnight(kNewYork, 11, 1),
                       shortDay = midnight(kNewYork, 3, 8), halfHour = midnight(kLordHowe, 4, 5),
                       tuesday = midnight(kBerlin, 6, 9),
                       autumn = std::to_wstring(std::stoll(midnight(kBerlin, 10, 25)) + 43200),
                       noon = std::to_wstring(std::stoll(tuesday) + 43200);
    const State states[] = {
        {"made long ago", kBerlin, 6, 10, 12, 0, "tbsu", "b"},
        {"another version's settings", kBerlin, 6, 10, 12, 0, "tbsu", "tb", kOld, R"({"version": "1"})"},
        {"some kinds", kBerlin, 6, 10, 12, 0, "bu", "b", kOld, R"({"thermal": "m7", "systeminfo": null})"},
        {"switched off", kBerlin, 6, 10, 12, 0, "", "-", kOld, "{}", {{L"MainSwitch", L"0"}}},
        {"an empty switch", kBerlin, 6, 10, 12, 0, "", "-", kOld, "{}", {{L"MainSwitch", L""}}},
        {"another chassis", kBerlin, 6, 10, 12, 0, "", "-", kOld, "{}", {}, "blank", "Desktop"},
        {"in the factory", kBerlin, 6, 10, 12, 0, "", "-", kOld, "{}", {}, "blank", "Notebook", L"IMAGE_STATE_OOBE"},
        {"younger than a week", kBerlin, 6, 10, 12, 0, "", "-", L"2026/6/8"},
        {"to be made", kBerlin, 6, 10, 12, 0, "", "-", L"2026/7/8"},
        {"no date", kTaipei, 6, 10, 3, 0, "", "-", L"soon"},
        {"no numbers", kBerlin, 6, 10, 12, 0, "", "-", L"a/b/c"},
        {"numbers out of range", kBerlin, 6, 10, 12, 0, "", "-", L"99999999999/1/1"},
        {"no such day", kBerlin, 6, 10, 12, 0, "", "-", L"2026/2/30"},
        {"a substitute", kBerlin, 6, 10, 12, 0, "tbsu", "b", L"soon", "{}", {{L"FakeManufacturingDate", L"2026/6/1"}}},
        {"over", kBerlin, 6, 10, 12, 0, "", "-", kOld, R"({"totalCollectTime": "3"})"},
        {"no months", kBerlin, 6, 10, 12, 0, "", "-", kOld, R"({"totalCollectTime": "many"})"},
        {"no pause", kBerlin, 6, 10, 12, 0, "", "-", kOld, R"({"intervalTimer": null})"},
        {"no day", kBerlin, 6, 10, 12, 0, "", "-", kOld, "{}", {{L"lastDojobTime", L"soon"}}},
        {"a timer that waits", kBerlin, 6, 9, 12, 9, "tsu", "b", kOld, "{}", {{L"GetBatteryPower", noon}}},
        {"a timer of tomorrow", kBerlin, 6, 8, 12, 0, "tbs", "b", kOld, "{}", {{L"upload", noon}}},
        {"a download's", kBerlin, 6, 9, 12, 0, "tbsu", "b", kOld, "{}", {{L"getSettingFile", L"soon"}}},
        {"a wild timer", kBerlin, 6, 9, 12, 0, "bsu", "b", kOld, "{}", {{L"GetThermal", L"9000000000000000000"}}},
        {"a timer without a number", kBerlin, 6, 9, 12, 0, "", "-", kOld, "{}", {{L"upload", L"soon"}}},
        {"a pause", kBerlin, 6, 10, 12, 0, "", "tbsu", kOld, "{}", {{L"lastDojobTime", tuesday}}},
        {"a pause to the 25th hour", kNewYork, 11, 1, 0, 20, "", "tbsu", kOld, "{}", {{L"lastDojobTime", saturday}}},
        {"after 24 of 25 hours", kNewYork, 11, 1, 23, 30, "", "tbsu", kOld, "{}", {{L"lastDojobTime", longDay}}},
        {"within 24 hours", kNewYork, 3, 9, 0, 30, "tbsu", "b", kOld, "{}", {{L"lastDojobTime", shortDay}}},
        {"half an hour", kLordHowe, 4, 5, 23, 45, "", "tbsu", kOld, "{}", {{L"lastDojobTime", halfHour}}},
        {"a short week", kBerlin, 3, 30, 0, 30, "", "-", L"2026/3/23"},
        {"a long week", kBerlin, 10, 25, 23, 30, "tbsu", "b", L"2026/10/19", "{}", {{L"lastDojobTime", autumn}}},
        {"the 25th hour begins no day", kBerlin, 10, 25, 23, 30, "", "tbsu"},
        {"a month ends at midnight UTC", kNewYork, 10, 31, 20, 1, "", "-", L"2026/10/2", kOneMonth},
        {"not before", kNewYork, 10, 31, 19, 58, "tbsu", "", L"2026/10/2", kOneMonth},
        {"activated", kTaipei, 6, 10, 11, 58, "tbsu", "", L"2025/1/5", kOneMonth, {}, kActivated},
        {"activated too long ago", kTaipei, 6, 10, 12, 1, "", "-", L"2026/6/1", kOneMonth, {}, kActivated},
    };
    for (const State& one : states) {
        const TimeZone zone(one.zone);
        Notebook machine;
        machine.install_service();
        machine.change_hardware(std::string(R"({"GPNV_ActivatedTime": ")") + one.activated +
                                R"(", "WMIGetSystemChassisTypes": ")" + one.chassis + "\"}");
        write_text(platform::machine_folder() + "/hardware.json", read_text(machine.bin_folder() + "hardware.json"));
        machine.default_setting(read_text(built("default.json")));  // the tool takes the one beside itself
        machine.change_setting(one.settings);
        WriteRegString(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate", one.made);
        WriteRegString(kLocalMachine, kSetupStateKey, L"ImageState", one.image);
        for (const auto& [name, text] : one.values) {
            SetValue(name, text);
        }
        MoveClock(SetClock(2026, one.month, one.day, one.hour, one.minute));
        EXPECT_EQ(Ask().kinds, one.does) << one.name;
        ExpectOneAnswer(one.name, *one.does != '\0');
        EXPECT_EQ(Pass(machine), one.does) << one.name;
        // What comes next, a minute early and in time.
        const std::int64_t next = Ask().next;
        EXPECT_EQ(next != 0, one.then != std::string("-")) << one.name;
        const std::wstring day = Value(L"lastDojobTime");
        for (const std::int64_t at : {next - 60, next}) {
            if (next != 0) {
                MoveClock(at);
                const std::string kinds = at == next ? one.then : "";
                EXPECT_EQ(Ask().kinds, kinds) << one.name << " " << at - next;
                EXPECT_EQ(Pass(machine), kinds) << one.name << " " << at - next;
                SetValue(L"lastDojobTime", day);  // as if there had been no pass: one in the 25th hour moves the day
            }
        }
    }
}

TEST(ZorvctlMachine, IsMadeOnceAndReadyToCollect) {
    const TestMachine outer;
    const std::string folder = outer.bin_folder() + "m";
    const ToolResult made = run_zorvctl("machine init --manufactured 2026/1/2 \"" + folder + "\"");
    EXPECT_EQ(made.code, 0) << made.errors;
    EXPECT_EQ(read_text(folder + "/hardware.json").find('{'), 0U);
    ::setenv("ZORV_MACHINE", folder.c_str(), 1);
    EXPECT_EQ(run_zorvctl("registry get SOFTWARE/Zorv/FactoryConfig ManufacturingDate").output, "2026/1/2\n");
    EXPECT_EQ(run_zorvctl("machine status").code, 0);
    EXPECT_EQ(run_zorvctl("machine init").code, 1);
    EXPECT_EQ(run_zorvctl("machine init --manufactured 2026-01-02").code, 2);
    run_zorvctl("registry set product MainSwitch 0");
    const ToolResult off = run_zorvctl("machine status");
    EXPECT_EQ(off.code, 1);
    EXPECT_NE(off.output.find("switched it off"), std::string::npos) << off.output;
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
    platform::report_event(L"Zorvalis", platform::kEventInformation, L"Zorvalis", L"second");
    EXPECT_NE(run_zorvctl("log").output.find("Information  Zorvalis  second\n"), std::string::npos);
}
#endif

}  // namespace
}  // namespace zorvalis
