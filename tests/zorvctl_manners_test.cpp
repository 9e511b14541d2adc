// What zorvctl judges and tells about server, settings and owner's data: exit codes, words, and what it leaves alone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "base/text.h"
#include "common/deployment.h"
#include "common/wide_to_utf8.h"
#include "platform/event_log.h"
#include "support/file_server.h"
#include "support/notebook.h"
#include "support/reference_server.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace zorvalis {
namespace {

namespace fs = std::filesystem;

const char kDocument[] =
    R"({"downloadSetting": "d1", "intervalTimer": "1", "totalCollectTime": "36", "thermal": "m30",
        "battery_power": "m30", "systeminfo": "d1", "upload": "d1", "poweronoff": "poweronoff",
        "suspend_resume": "suspend_resume", "ac_dc": "off", "lid_open_close": "lid_open_close",
        "quiet_fan": "0", "battery_health": "battery_health", "wmi_event": "wmi_event"})";

// The document with `changes` merged into it; a null takes a key away.
std::string Changed(const std::string& changes) {
    Json document = ParseJson(kDocument);
    document.merge_patch(ParseJson(changes));
    return DumpJson(document);
}

struct Case {
    std::string input;
    int code;
    const char* piece;  // of the output, or of the complaint
};

void Expect(const std::string& arguments, const Case& each) {
    LoopbackServer::settle();
    const ToolResult result = run_zorvctl(arguments);
    LoopbackServer::settle();
    EXPECT_EQ(result.code, each.code) << arguments << "\n" << each.input.substr(0, 300) << "\n" << result.errors;
    EXPECT_NE((result.output + result.errors).find(each.piece), std::string::npos) << arguments << "\n"
                                                                                   << each.input.substr(0, 300) << "\n"
                                                                                   << result.output << result.errors;
    if (arguments.find("--json") != std::string::npos && each.code != 2) {
        EXPECT_NO_THROW(ParseJson(result.output)) << result.output;
    }
}

TEST(ZorvctlSettingsCheck, SaysWhatADocumentWouldDo) {
    const TestMachine machine;
    const std::string path = machine.bin_folder() + "new.json", check = "settings check \"" + path + "\"";
    const std::string huge(17 << 20, ' ');
    const Case cases[] = {
        {kDocument, 0, "new.json is good."},
        {Changed(R"({"version": "1.0"})"), 0, "look  version"},
        {Changed(R"({"termal": "m5"})"), 0, "no key of the service"},
        {Changed(R"({"thermal": null})"), 0, "absent: no pass does it"},
        {Changed(R"({"totalCollectTime": "12 months"})"), 0, "what follows the number is ignored: 12 months"},
        {R"({"thermal": "m5", )" + std::string(kDocument + 1), 0, "stands twice"},
        {Changed(R"({"x": [1, {"y": 1e999}]})"), 0, "look  x"},
        {Changed(R"({"thermal": 5})"), 1, "every pass ends on it"},
        {Changed(R"({"intervalTimer": 1})"), 1, "until it has a better document"},
        {Changed(R"({"downloadSetting": true})"), 1, "asked for anew by every pass"},
        {Changed(R"({"thermal": "m7"})"), 1, "there are m5 m10 m15 m20 m25 m30 m60 d1 d7 d30, and off\n"},
        {Changed(R"({"downloadSetting": "off"})"), 1, "the document would be refused; there are m5"},
        {Changed(R"({"lid_open_close": "on"})"), 1, "only the key's own word"},
        {Changed(R"({"lid_open_close": null})"), 0, "look  lid_open_close"},
        {Changed(R"({"intervalTimer": "-1"})"), 1, "HARM  intervalTimer     -1"},
        {Changed(R"({"totalCollectTime": null})"), 1, "absent: no machine collects anything"},
        {Changed(R"({"totalCollectTime": "0"})"), 1, "no machine collects anything by these"},
        {Changed(R"({"totalCollectTime": "1658"})"), 1, "wraps around"},
        {Changed(R"({"intervalTimer": "x"})"), 1, "no number"},
        {Changed(R"({"\u001b[2J": "\u001b"})"), 0, "\\x1B[2J"},
        {"", 1, "it is no JSON"},
        {"{\"thermal\": \"\xFF\"}", 1, "it is no JSON"},
        {std::string(100000, '['), 1, "nested too deeply"},
        {"[]", 1, "no object of keys"},
        {huge, 1, "16 MiB"},
    };
    for (const Case& each : cases) {
        write_text(path, each.input);
        Expect(check, each);
        Expect(check + " --json", {each.input, each.code, "\"verdict\":"});
    }
    Expect("settings check \"" + machine.bin_folder() + "absent\"", {"", 2, "does not exist"});
    Expect("settings check .", {"", 2, "is a folder"});
    Expect("settings check", {"", 2, "FILE"});
}

// Every second day of the month is one of collecting; the file of a month is made on the first of them, and sent two
// days later with what it holds then.
TEST(ZorvctlSettingsCheck, WalksAYearByTheRules) {
    const TestMachine machine;
    const std::string path = machine.bin_folder() + "new.json";
    const struct {
        const char* changes;
        double days, thermal, dropped, files, rows, queries, busiest;  // the last: days of the busiest month
        int pages, eventPages;                                         // of the files that are sent
    } cases[] = {
        {"{}", 183, 97 * 12, 13095, 12, 1200, 365, 16, 96, 31},
        {R"({"intervalTimer": "0", "totalCollectTime": "1", "downloadSetting": "d7"})", 22, 97, 1746, 1, 196, 53, 22,
         12, 31},
        {R"({"thermal": "off", "battery_power": "d1", "upload": "off", "wmi_event": ""})", 183, 0, 159, 0, 0, 365, 16,
         0, 24},
    };
    for (const auto& each : cases) {
        write_text(path, Changed(each.changes));
        const Json verdict = ParseJson(run_zorvctl("settings check --json \"" + path + "\"").output);
        std::map<std::string, double> year, month;
        for (const Json& row : verdict["calendar"]) {
            year[row["what"]] = row["year"];
            month[row["what"]] = row["month"];
        }
        EXPECT_EQ(year["days of collecting"], each.days) << each.changes;
        EXPECT_EQ(year["Thermal"], each.thermal) << each.changes;
        EXPECT_EQ(year["rows that a full table drops"], each.dropped) << each.changes;
        EXPECT_EQ(year["files that are sent"], each.files) << each.changes;
        EXPECT_EQ(year["rows that are sent"], each.rows) << each.changes;
        EXPECT_EQ(year["settings asked for"], each.queries) << each.changes;
        EXPECT_EQ(month["days of collecting"], each.busiest) << each.changes;
        // A page of 4096 bytes is one of 192 parts of a MiB in Base64.
        EXPECT_NEAR(year["MiB that are sent"] * 192, each.pages, 1e-6) << each.changes;
        EXPECT_NEAR(month["MiB more with events, at most"] * 192, each.eventPages, 1e-6) << each.changes;
    }
}

TEST(ZorvctlServer, IsMetAsAPassMeetsItAndNothingIsStored) {
    const Notebook machine;
    FileServer server;
#ifdef _WIN32
    ::SetEnvironmentVariableA("http_proxy", LoopbackServer::address().c_str());  // for the tool, a process of its own
#endif
    const std::string stored = read_text(std::string(kProductFolder) + "setting.json");
    const auto settings = [](const char* changes) {
        return DumpJson({{"status", "OK"}, {"service_version", "2.0.6.0"}, {"json_string", Changed(changes)}});
    };
    const struct {
        FileServer::Fault fault;
        int code;
        const char* piece;
    } cases[] = {
        {{200, settings("{}")}, 0, "query        held       it answers with settings for this version"},
        {{200, settings(R"({"thermal": 5})")}, 1, "would do harm: thermal: no text"},
        {{200, R"({"status": "NO_SETTING"})"}, 0, "so default.json rules"},
        {{200, R"({"status": "OK", "service_version": "1", "json_string": )" + Json(kDocument).dump() + "}"},
         0,
         "for version 1, so default.json rules"},
        {{200, R"({"status": "OK", "json_string": "{}"})"}, 1, "lacks service_version"},
        {{200, "<html>"}, 1, "no JSON"},
        {{200, ""}, 1, "no JSON"},
        {{200, "0"}, 1, "no answer to this query"},
        {{404, ""}, 1, "status 404: nothing there speaks this protocol"},
        {{503, ""}, 1, "status 503"},
    };
    for (const auto& each : cases) {
        server.reset();
        server.faults[0] = each.fault;
        Expect("server test", {each.fault.body, each.code, each.piece});
        EXPECT_EQ(server.calls, std::vector<std::string>{"/api/FS/query"}) << each.piece;
        EXPECT_EQ(ParseJson(server.body)["clientversion"], "2.0.6.0");
    }
    Expect("server test --json", {"", 1, "\"holds\":false"});
    Expect("server test ftp://x", {"", 2, "leave out the scheme"});
    Expect("server test x:8443", {"", 2, "the port is always 443"});
    Expect("server test \"a b\"", {"", 2, "host name"});
    EXPECT_EQ(read_text(std::string(kProductFolder) + "setting.json"), stored);
#ifdef _WIN32
    ::SetEnvironmentVariableA("http_proxy", nullptr);
#endif
}

#ifndef _WIN32
TEST(ZorvctlServer, SaysWhichStepFailedAndWhy) {
    const Notebook machine;
    const std::string network = platform::machine_folder() + "/network.json";
    write_text(network, R"({"online": false})");
    Expect("server test", {"offline", 1, "has no network, so no pass asks for anything\nname         not tried"});
    platform::remove_file(network);
    ReferenceServer server(machine);
    RemoveValue(L"BGSERVER_URL");
    Expect("server test", {"untrusted", 1, "certificate  BROKEN     the server's certificate is not trusted"});
    server.trust();
    Expect("server test", {"trusted", 0, "certificate  held       trusted, and for this name"});
    Expect("server test https://unknown.example/", {"", 1, "name         BROKEN     the server's name is not known"});
    SetValue(L"BGSERVER_URL", L"https://fs.zorvcore.example/");
    Expect("server test", {"an address for a name", 1, "BGSERVER_URL takes a bare host name"});
    RemoveValue(L"BGSERVER_URL");
    EXPECT_EQ(server.end(), 0);
    Expect("server test", {"nobody listens", 1, "connection   BROKEN     no connection: nothing listens there"});
    server.begin();
}
#endif

TEST(ZorvctlForget, ListsAndDeletesItsOwnAndNothingElse) {
    const Notebook machine;
    const std::string outside = machine.bin_folder() + "outside", folder = kProductFolder;
    write_text(outside, "kept");
    fs::create_directories(platform::native_path(kDataFolder));
    fs::create_directories(platform::native_path(folder) + "/a/b");
    write_text(folder + "data\\O_x.db", "rows");
    Register("O_sent", 1, "2026-01-05");
    ChangeRows("UPDATE FILESTATUS SET FILE_TRY_COUNT = 1");
    Register("O_new", 1, "2026-01-05");
    for (const wchar_t* value : {L"GetThermal", L"guid", L"MainSwitch", L"BGSERVER_URL"}) {
        SetValue(value, L"0");
    }
    constexpr const wchar_t* kOwn[] = {L"SN", L"RandomUUID", L"NvramFail"};
    for (const wchar_t* value : kOwn) {
        WriteRegString(kLocalMachine, kConfigKey, value, L"123");
    }
    WriteRegString(kLocalMachine, kConfigKey, L"Other", L"kept");
#ifndef _WIN32
    write_text(platform::machine_folder() + "/hardware.json",
               R"({"GPNV_RandomUUID": "00112233-4455-6677-8899-aabbccddeeff"})");
    fs::create_symlink(outside, platform::native_path(folder) + "/link");
    fs::create_directory_symlink(machine.bin_folder(), platform::native_path(folder) + "/a/folder");
#endif
    Expect("forget", {"", 0, "Nothing was deleted."});
    Expect("forget --json", {"", 0, "\"deleted\":false"});
    Expect("forget --json", {"", 0, R"("sent":["O_sent"])"});
    Expect("forget --json", {"", 0, R"({"bytes":4,"kind":"file")"});
    EXPECT_EQ(read_text(folder + "data\\O_x.db"), "rows");
    if (!platform::machine_folder().empty()) {
        Expect("forget --json", {"", 0, R"("identity":"00112233-4455-6677-8899-aabbccddeeff")"});
    }
    const ToolResult deleted = run_zorvctl("forget --yes");
    EXPECT_NE(deleted.output.find("All of it is deleted"), std::string::npos) << deleted.output << deleted.errors;
    EXPECT_EQ(deleted.code, 0);
    EXPECT_EQ(read_text(outside), "kept");
    EXPECT_FALSE(fs::exists(platform::native_path(folder) + "/data"));
    EXPECT_EQ(WideToUtf8(Value(L"GetThermal") + Value(L"guid") + Value(L"MainSwitch") + Value(L"BGSERVER_URL")),
              "ERROR_READREGERROR_READREG00");
    for (const wchar_t* value : kOwn) {
        EXPECT_EQ(ReadRegString(kLocalMachine, kConfigKey, value), ERROR_READREG);
    }
    EXPECT_EQ(ReadRegString(kLocalMachine, kConfigKey, L"Other"), L"kept");
    const Json after = ParseJson(run_zorvctl("forget --json").output);
    EXPECT_TRUE(after["files"].empty() && after["registry"].empty() && after["identity"].is_null()) << after;
    DeleteRegKey(kLocalMachine, kConfigKey);
}

#ifndef _WIN32
TEST(ZorvctlForget, RefusesWhereItCannotBeSureAndNamesWhatIsLeft) {
    Notebook machine;
    const std::string folder = platform::native_path(kProductFolder), own = folder.substr(0, folder.size() - 1);
    fs::create_directories(own + "/data");
    EXPECT_EQ(std::system((machine.install_service() + " -install >/dev/null").c_str()), 0);
    EXPECT_EQ(run_zorvctl("service start").code, 0);
    Expect("forget --yes", {"", 1, "the service runs"});
    EXPECT_EQ(run_zorvctl("service stop").code, 0);
    std::ofstream(own + "/data/not\\listed").put('x');  // a name that would be read as a path, so it is left alone
    Expect("forget --yes", {"", 1, "STILL THERE"});
    EXPECT_TRUE(fs::exists(own + "/data/not\\listed"));
    fs::remove_all(own);
    fs::create_directory_symlink(machine.bin_folder(), own);
    Expect("forget --yes", {"", 1, "a link or junction"});
    EXPECT_TRUE(fs::exists(machine.bin_folder()));
    fs::remove(own);
}

TEST(ZorvctlManners, TheEventLogIsFollowedAndBeginsAtATime) {
    const TestMachine machine;
    Expect("log --json", {"", 0, "[]\n"});
    write_text(platform::machine_folder() + "/eventlog.jsonl",
               "{\"time\": 86400, \"type\": 4, \"strings\": [\"Zorvalis\", \"old\"]}\n{\"time\": " +
                   std::to_string(platform::now_seconds() - 3600) +
                   ", \"type\": 1, \"strings\": [\"Zorvalis\", \"hour\"]}\n");
    platform::report_event(L"Zorvalis", platform::kEventInformation, L"Zorvalis", L"new");
    const std::pair<const char*, const char*> shown[] = {{"2h", "hour new "},
                                                         {"90m", "hour new "},
                                                         {"30m", "new "},
                                                         {"1970-01-01 --last 1", "new "},
                                                         {"1d --last 9", "hour new "}};
    for (const auto& [since, words] : shown) {
        std::string found;
        for (const std::string& line : SplitString(run_zorvctl(std::string("log --since ") + since).output, '\n')) {
            found += line.substr(line.rfind(' ') + 1) + " ";
        }
        EXPECT_EQ(found, words) << since;
    }
    Expect("log --since 1970-01-01 --last 3", {"", 0, "old\n"});
    Expect("log --since '1970-01-03 00:00' --json", {"", 0, "\"new\""});
    Expect("log --follow --seconds 0.001", {"", 0, "new\n"});
    for (const char* time : {"yesterday", "2026-13-01", "2026-11-12x", "-2h", "2h30"}) {
        Expect(std::string("log --since '") + time + "'", {"", 2, "--since takes a time"});
    }
    std::ofstream(platform::machine_folder() + "/eventlog.jsonl", std::ios::app) << "{}\n";
    Expect("log", {"", 1, "1 lines of "});
    write_text(platform::machine_folder() + "/trace.log", "86400.5\t42\t10\ta\\tb\xFF\n");
    Expect("trace --all --seconds 0.001 --json", {"", 0, R"("text":"a\\tb\\xFF")"});
}

TEST(ZorvctlManners, ShellsCompleteWhatTheCommandsSay) {
    const TestMachine machine;
    const std::string script = machine.bin_folder() + "completion";
    write_text(script,
               run_zorvctl("completion bash").output +
                   "try() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _zorvctl; echo \"${COMPREPLY[@]}\"; }\n"
                   "try zorvctl regi; try zorvctl registry d; try zorvctl registry delete --a; try zorvctl x ''\n");
    EXPECT_EQ(std::system(("bash " + script + " >" + script + ".out").c_str()), 0);
    const std::string completed = read_text(script + ".out");
    EXPECT_TRUE(completed.starts_with("registry\ndelete\n--all\n")) << completed;
    Expect("completion fish", {"", 2, "fish"});
    Expect("completion powershell", {"", 0, "'zorvctl registry delete' = '--help --all'"});
    Expect("manual", {"", 0, ".SS zorvctl registry delete KEY [VALUE]\n"});
}
#endif

TEST(ZorvctlManners, AWholeKeyIsDeletedOnlyWhenThatIsSaid) {
    const TestMachine machine;
    SetValue(L"MainSwitch", L"0");
    Expect("registry delete product", {"", 2, "say --all"});
    Expect("registry delete product MainSwitch --all", {"", 2, "either a VALUE or --all"});
    EXPECT_EQ(Value(L"MainSwitch"), L"0");
    Expect("registry get product MainSwitch --json", {"", 0, R"({"data":"0","name":"MainSwitch","type":"REG_SZ"})"});
    Expect("registry list SOFTWARE/Zorv/Zorvcore --json -r", {"", 0, R"("name":"MainSwitch")"});
}

}  // namespace
}  // namespace zorvalis
