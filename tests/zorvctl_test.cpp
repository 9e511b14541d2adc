// The built zorvctl as a process: what it prints, its exit codes, and the files that it touches or leaves alone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "common/code_page.h"
#include "common/deployment.h"
#include "common/time.h"
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
    std::string wide = "CREATE TABLE Wide (c0";
    for (int i = 1; i < 40; ++i) {
        wide += ", c" + std::to_string(i);
    }
    wide +=
        "); WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 60) INSERT INTO Wide (c3) "
        "SELECT 'n' || i FROM n;";
    std::string torn = plain;
    torn.replace(4096, 200, 200, '\x5C');
    const std::map<std::string, std::string> files = {
        {"small", transformed(plain)}, {"plain", plain}, {"wide", transformed(database(wide))}, {"empty", ""},
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
        {"wide", "", 0, "  n59   n60\nc4 ", ""},
        {"small wide", "--table Wide --last 1", 0, "Wide: 60 rows, the last 1\n", ""},
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
        {"delete SOFTWARE/Zorv/Zorvcore", 1, ""},
        {"delete product Text", 0, ""},
        {"delete product", 0, ""},
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
        EXPECT_EQ(run_zorvctl("settings --json").code, each.code);
    }
}

#ifndef _WIN32
TEST(ZorvctlSettings, AgreeWithWhatAPassDoes) {
    const auto daysAgo = [](int days, char separator) {
        std::string date = EpochTextToTimeString(std::to_string(platform::now_seconds() - days * 86400)).substr(0, 10);
        date[4] = date[7] = separator;
        return date;
    };
    const std::string lately = daysAgo(30, '/'), longAgo = daysAgo(300, '/'), noTime;
    const struct {
        const char* name;
        std::string manufactured, activated;
        const wchar_t* mainSwitch;
        bool collects;
    } cases[] = {{"made lately", lately, noTime, ERROR_READREG, true},
                 {"made long ago", longAgo, noTime, L"1", false},
                 {"a blank behind the date", lately + " ", noTime, L"1", true},
                 {"a date that no year has", "2026/2/30", noTime, L"1", false},
                 {"younger than a week", daysAgo(2, '/'), noTime, L"1", false},
                 {"to be made", daysAgo(-30, '/'), noTime, L"1", false},
                 {"no date", "soon", noTime, L"1", false},
                 {"no numbers", "a/b/c", noTime, L"1", false},
                 {"activated lately", longAgo, daysAgo(30, '-'), L"1", true},
                 {"activated long ago", lately, daysAgo(300, '-'), L"1", false},
                 {"an empty switch", lately, noTime, L"", false},
                 {"switched off", lately, noTime, L"0", false}};
    for (const auto& one : cases) {
        Notebook machine;
        machine.change_setting(R"({"totalCollectTime": "3"})");
        machine.default_setting(R"({"totalCollectTime": "3", "intervalTimer": "1", "thermal": "m5", "upload": "d1"})");
        machine.change_hardware(one.activated.empty() ? "{}"
                                                      : "{\"GPNV_ActivatedTime\": \"" + one.activated + " 10:00:00\"}");
        write_text(platform::machine_folder() + "/hardware.json", read_text(machine.bin_folder() + "hardware.json"));
        WriteRegString(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate", WidenBytes(one.manufactured));
        SetValue(L"MainSwitch", one.mainSwitch);  // the sentinel's own text reads as a missing value
        const auto ask = [&] {
            const std::string heldBack = ParseJson(run_zorvctl("settings --json").output)["heldBack"];
            EXPECT_EQ(heldBack.empty(), one.collects) << one.name << ": " << heldBack;
            const ToolResult status = run_zorvctl("machine status");
            EXPECT_EQ(status.code == 0, one.collects) << one.name << status.output;
            const std::string uploads = run_zorvctl("uploads").output;
            EXPECT_EQ(uploads.find(heldBack.empty() ? "held back" : heldBack) == uploads.npos, one.collects)
                << one.name << uploads;
        };
        ask();
        EXPECT_EQ(std::system(("\"" + machine.install_service() + "\" -j0").c_str()), 0);
        EXPECT_EQ(!machine.stored().empty(), one.collects) << one.name;
        ask();
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
