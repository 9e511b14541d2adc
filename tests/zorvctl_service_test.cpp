// zorvctl's commands around the service, on a machine whose service is the test program itself.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "platform/service_manager.h"
#include "support/fake_service.h"
#include "support/machine.h"
#include "support/notebook.h"

namespace {

namespace fs = std::filesystem;

void expect(const std::string& arguments, int code, const std::string& piece) {
    const ToolResult result = run_zorvctl(arguments);
    const std::string text = result.output + result.errors;
    EXPECT_EQ(result.code, code) << arguments << "\n" << text;
    EXPECT_NE(text.find(piece), std::string::npos) << arguments << "\n" << text;
}

class ZorvctlService : public testing::Test {
protected:
    void SetUp() override {
        const std::wstring path = fs::read_symlink("/proc/self/exe").wstring();
        platform::ServiceManager manager;
        ASSERT_TRUE(manager.open(3));
        ASSERT_TRUE(manager.create_service({L"Zorvalis", L"", 16, 2, 1, path.c_str(), L"", nullptr, nullptr}, 4));
    }
    void TearDown() override { ::unsetenv("FAKE_SERVICE_FAILS"); }

    TestMachine machine_;
};

TEST_F(ZorvctlService, StartsTellsAndStops) {
    expect("service status", 1, "Zorvalis    stopped\nexit code   never started\n");
    for (const char* command : {"stop", "interrogate", "preshutdown"}) {
        expect(std::string("service ") + command, 1, "not running; `zorvctl service start`");
    }
    expect("event suspend", 1, "no service is running");
    expect("event display dimmed", 0, "no service is running");
    expect("service start", 0, "Zorvalis is running; its output goes to");
    expect("service start", 1, "running already");
    expect("service run", 1, "running already");
    expect("service status", 0, "Zorvalis    running since 20");
    expect("service interrogate", 0, "accepts     stop, power events, session changes, pre-shutdown\ncheckpoint  0\n");
    for (const char* event : {"lid close", "ac out", "display on", "suspend", "resume"}) {
        expect(std::string("event ") + event, 0, "");
    }
    EXPECT_EQ(read_text(platform::machine_folder() + "/power.json"), "{\"ac\":1,\"display\":1,\"lid\":0}\n");
    expect("service stop", 0, "has stopped\n");
    expect("service status", 1, "Zorvalis    stopped since 20");
    EXPECT_EQ(read_text(platform::machine_folder() + "/run/Zorvalis.log"), "the service's own words\n");
    expect("service start", 0, "running");
    expect("service preshutdown", 0, "stopped for the shutdown");
    EXPECT_EQ(reported_states(), "2 4 3 1 2 4 1");
}

TEST_F(ZorvctlService, SaysHowAServiceEndedThatDidNotStop) {
    ::setenv("FAKE_SERVICE_FAILS", "", 1);
    expect("service start", 1, "stopped with exit code 1234");
    expect("service run", 1, "the service's own words\nzorvctl: Zorvalis stopped with exit code 1234");
    platform::ServiceManager manager;
    ASSERT_TRUE(manager.open(1) && manager.open_service(L"Zorvalis", 0x10000) && manager.delete_service());
    for (const char* command : {"run", "start", "status", "stop"}) {
        expect(std::string("service ") + command, 1, "no service Zorvalis on this machine");
    }
    write_text(platform::machine_folder() + "/services/Zorvalis.json", R"({"path": "/bin/true"})");
    expect("service start", 1, "ended without a report");
    write_text(platform::machine_folder() + "/services/Zorvalis.json", R"({"path": "/absent"})");
    expect("service start", 1, "/absent cannot be started: No such file");
}

TEST_F(ZorvctlService, RunsInTheForegroundUntilToldToEnd) {
    const std::string file = platform::machine_folder() + "/id";
    std::thread foreground([&] { EXPECT_EQ(run_zorvctl("service run & echo $! >" + file + "; wait $!").code, 0); });
    while (ask(R"({"status": true})").find("\"state\":4") == std::string::npos) {
        std::this_thread::yield();
    }
    ::kill(std::stoi(read_text(file)), SIGTERM);
    foreground.join();
    EXPECT_EQ(reported_states(), "2 4 3 1");
}

TEST(ZorvctlCall, AsksTheServiceByJsonAndDirectly) {
    Notebook notebook;
    notebook.change_hardware(
        R"({"WMIGetModelName": "Lumen\u0007 14", "WMIGetQuietFan": 0,
        "WMICheckBatteryHealthSupport": 1, "WMIGetBatteryHealth": 100, "WMISetAppPath": ""})");
    expect("get model", 1, "the service does not run: nobody listens at");
    fs::copy_file(built("../tests/libraries/ChkReg.so"), notebook.bin_folder() + "ChkReg.so");
    ASSERT_EQ(std::system((notebook.install_service() + " -install >/dev/null").c_str()), 0);
    expect("service start", 0, "running");
    const struct {
        const char* arguments;
        int code;
        const char* output;
    } cases[] = {
        {R"(call '{"function":9,"version":1}')", 0,
         R"({"function":9,"parameter":"{\"p1\":\"2.0.6.0\"}","status":"Success","version":1})"},
        {"call 'no JSON'", 1, "empty answer"},
        {"get model", 0, "Lumen\\x07 14\n"},
        {"get uuid --direct", 0, "00112233-4455-6677-8899-aabbccddeeff\n"},
        {"get model --direct", 0, "CallbackText  function 0  cookie 1  result Lumen\\x07 14\n"},
        {"get main-switch --direct", 0, "CallbackFlag  function 11  cookie 1  result 1\n"},
        {"get wifi --direct", 2, "wifi has no direct call"},
        {"set battery-health 80", 0, ""},
        {"get battery-health --direct", 0, "CallbackInteger  function 3  cookie 1  result 80\n"},
        {"set quiet-fan on", 1, "this machine has no quiet-fan mode"},
        {"set quiet-fan on --direct", 0, "CallbackFlag  function 7  cookie 1  result 1\n"},
        {"set main-switch off", 0, ""},
        {"get main-switch", 0, "0\n"},
        {"set main-switch on --direct", 0, "CallbackFlag  function 10  cookie 1  result 1\n"},
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
