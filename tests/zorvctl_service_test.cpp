// zorvctl's commands around the service, with the built executable.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "support/notebook.h"

namespace {

namespace fs = std::filesystem;

void expect(const std::string& arguments, int code, const std::string& piece) {
    const ToolResult result = run_zorvctl(arguments);
    const std::string text = result.output + result.errors;
    EXPECT_EQ(result.code, code) << arguments << "\n" << text;
    EXPECT_NE(text.find(piece), std::string::npos) << arguments << "\n" << text;
}

// Started, it runs as `zorvctl service` says, with its two minutes shortened.
class ZorvctlService : public testing::Test {
protected:
    ZorvctlService() {
        write_text(platform::machine_folder() + "/clock.json", R"({"wait": 0.001})");
        EXPECT_EQ(std::system((notebook.install_service() + " -install >/dev/null").c_str()), 0);
    }

    Notebook notebook;
};

TEST_F(ZorvctlService, StartsTellsAndStops) {
    expect("service status", 1, "Zorvalis    stopped\nexit code   never started\n");
    expect("service stop", 1, "not running; `zorvctl service start`");
    expect("event suspend", 1, "no service is running");
    expect("event display dimmed", 0, "no service is running");
    expect("service start", 0, "Zorvalis is running; its output goes to");
    expect("service run", 1, "running already");
    expect("service interrogate", 0, "accepts     stop, power events, session changes, pre-shutdown\ncheckpoint  0\n");
    for (const char* event : {"lid close", "ac out", "display on", "suspend", "resume"}) {
        expect(std::string("event ") + event, 0, "");
    }
    EXPECT_EQ(read_text(platform::machine_folder() + "/power.json"), "{\"ac\":1,\"display\":1,\"lid\":0}\n");
    expect("service stop", 0, "has stopped\n");
    expect("service status", 1, "Zorvalis    stopped since 20");
    expect("service start", 0, "running");
    expect("service preshutdown", 0, "stopped for the shutdown");
}

TEST_F(ZorvctlService, SaysHowAServiceEndedThatDidNotStop) {
    const std::string entry = platform::machine_folder() + "/services/Zorvalis.json";
    write_text(entry, R"({"path": "/bin/true"})");
    expect("service start", 1, "ended without a report");
    write_text(entry, R"({"path": "/absent"})");
    expect("service start", 1, "/absent cannot be started: No such file");
    platform::remove_file(entry);
    expect("service start", 1, "no service Zorvalis on this machine");
}

TEST_F(ZorvctlService, RunsInTheForegroundUntilToldToEnd) {
    const std::string file = platform::machine_folder() + "/id";
    std::thread foreground([&] { EXPECT_EQ(run_zorvctl("service run & echo $! >" + file + "; wait $!").code, 0); });
    EXPECT_TRUE(Comes([] { return std::system((built("zorvctl") + " service status >/dev/null 2>&1").c_str()) == 0; }));
    ::kill(std::stoi(read_text(file)), SIGTERM);
    foreground.join();
}

TEST_F(ZorvctlService, IsAskedByJsonAndDirectly) {
    notebook.change_hardware(
        R"({"WMIGetModelName": "Lumen\u0007 14", "WMIGetQuietFan": 0,
        "WMICheckBatteryHealthSupport": 1, "WMIGetBatteryHealth": 100, "WMISetAppPath": ""})");
    expect("get model", 1, "the service does not run: nobody listens at");
    fs::copy_file(built("../tests/libraries/ChkReg.so"), notebook.bin_folder() + "ChkReg.so");
    expect("service start", 0, "running");
    const struct {
        const char* arguments;
        int code;
        const char* output;
    } cases[] = {
        {R"(call '{"function":9,"version":1}')", 0,
         R"({"function":9,"parameter":"{\"p1\":\"2.0.6.0\"}","status":"Success","version":1})"},
        {"call 'no JSON'", 1, "empty answer"},
        {"call GetUUID", 0, "00112233-4455-6677-8899-aabbccddeeff\n"},
        {"call GetTestDataFunc -5", 0, "CallbackTestData  cookie 1  result -1\n"},
        {"call SetQuietFan", 2, "arguments that it takes: 1"},
        {"call SetQuietFan maybe", 2, "maybe is no number"},
        {"call SetQuietFan 256", 2, "a flag is 0 or 1, not 256"},
        {"call getmodelname", 2, "neither a direct call nor JSON"},
        {"call GetNothing 1", 2, "GetNothing is neither a direct call nor JSON"},
        {"get model", 0, "Lumen\\x07 14\n"},
        {"get model --direct", 0, "CallbackText  function 0  cookie 1  result Lumen\\x07 14\n"},
        {R"(call '{"function":99,"version":1}')", 1, R"("status":"Error")"},
        {"get model --json", 0, R"({"name":"model","value":"Lumen\u0007 14"})"},
        {"service status --json", 0, R"("state":"running")"},
        {"get wifi --direct", 2, "wifi has no direct call"},
        {"set battery-health 80", 0, ""},
        {"get battery-health --direct", 0, "CallbackInteger  function 3  cookie 1  result 80\n"},
        {"set quiet-fan on", 1, "this machine has no quiet-fan mode"},
        {"set main-switch off", 0, ""},
        {"get main-switch", 0, "0\n"},
        {"call SetQuietFan 1", 0, ""},
        {"get main-switch", 0, "0\n"},
        {"call SetMainSwitchByUser 1", 0, ""},
        {"get main-switch", 0, "1\n"},
        {"set app-folder /opt/a --direct", 0, ""},
        {"consent --refuse --account ann --app Paint --app-version 7 --time '2026-11-12 09:08:07.006'", 0, ""},
        {"consent --agree --direct --account ann --time '2026-11-12 09:08:07.006'", 0, ""},
        {"consent --refuse --direct", 1, "records no refusal"},
    };
    for (const auto& each : cases) {
        expect(each.arguments, each.code, each.output);
    }
    EXPECT_NE(read_text(notebook.bin_folder() + "hardware.json").find("/opt/a"), std::string::npos);
    const std::string who = "00112233-4455-6677-8899-aabbccddeeff ann ", when = " 2026 11 0 12 9 8 7 6\n";
    EXPECT_EQ(read_text(notebook.bin_folder() + "ChkReg.log"),
              who + "Paint 7 0" + when + who + "zorvctl 2.0.6.0 1" + when);
    write_text(notebook.bin_folder() + "ChkReg.result", "2");
    expect("consent --agree", 1, "the service refuses: Set PP fail");
    expect("service stop", 0, "has stopped");
}

}  // namespace
