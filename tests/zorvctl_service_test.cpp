// zorvctl's commands around the service, on a machine whose service is the test program itself.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>

#include "platform/linux/line_server.h"
#include "platform/machine.h"
#include "platform/service_manager.h"
#include "support/fake_service.h"
#include "support/machine.h"

namespace {

namespace fs = std::filesystem;

struct Result {
    int code;
    std::string text;  // output and errors
};

std::string tool() {
    return (fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin/zorvctl").string();
}

Result run(const std::string& arguments) {
    const std::string output = platform::machine_folder() + "/output";
    const int status = std::system((tool() + " " + arguments + " >" + output + " 2>&1").c_str());
    return {WEXITSTATUS(status), read_text(output)};
}

void expect(const std::string& arguments, int code, const std::string& piece) {
    const Result result = run(arguments);
    EXPECT_EQ(result.code, code) << arguments << "\n" << result.text;
    EXPECT_NE(result.text.find(piece), std::string::npos) << arguments << "\n" << result.text;
}

class ZorvctlService : public testing::Test {
protected:
    void SetUp() override {
        const std::wstring path = fs::read_symlink("/proc/self/exe").wstring();
        platform::ServiceManager manager;
        ASSERT_TRUE(manager.open(3));
        ASSERT_TRUE(manager.create_service({L"Zorvalis", L"", 16, 2, 1, path.c_str(), L"", nullptr, nullptr}, 4));
    }
    void TearDown() override { ::unsetenv("FAKE_SERVICE"); }

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
    ::setenv("FAKE_SERVICE", "fail", 1);
    expect("service start", 1, "stopped with exit code 1234");
    expect("service run", 1, "the service's own words\nzorvctl: Zorvalis stopped with exit code 1234");
    ::setenv("FAKE_SERVICE", "silent", 1);
    expect("service start", 1, "ended without a report");
    platform::ServiceManager manager;
    ASSERT_TRUE(manager.open(1) && manager.open_service(L"Zorvalis", 0x10000) && manager.delete_service());
    for (const char* command : {"run", "start", "status", "stop"}) {
        expect(std::string("service ") + command, 1, "no service Zorvalis on this machine");
    }
    write_text(platform::machine_folder() + "/services/Zorvalis.json", R"({"path": "/absent"})");
    expect("service start", 1, "/absent cannot be started: No such file");
}

TEST_F(ZorvctlService, RunsInTheForegroundUntilToldToEnd) {
    for (const bool bySignal : {true, false}) {
        Result result{};
        std::thread foreground([&] {
            result = run("service run >/dev/null 2>&1 & echo $! >" + platform::machine_folder() + "/id; wait $!");
        });
        while (ask(R"({"status": true})").find("\"state\":4") == std::string::npos) {
            std::this_thread::yield();
        }
        if (bySignal) {
            ::kill(std::stoi(read_text(platform::machine_folder() + "/id")), SIGTERM);
        } else {
            EXPECT_EQ(std::system((tool() + " service stop >/dev/null").c_str()), 0);
        }
        foreground.join();
        EXPECT_EQ(result.code, 0) << result.text;
    }
    EXPECT_EQ(reported_states(), "2 4 3 1 2 4 3 1");
}

TEST_F(ZorvctlService, HandsFirmwareEventsToWhoeverListens) {
    expect("event wmi 154", 1, "nobody listens");
    platform::LineServer server;
    ASSERT_EQ(server.open("run/events"), 0U);
    std::promise<std::string> line;
    const auto take = [&](auto, const std::string& text) {
        line.set_value(text);
        return std::string("taken");
    };
    ASSERT_EQ(server.start(take), 0U);
    expect("event wmi -3", 0, "");
    EXPECT_EQ(line.get_future().get(), "{\"EventID\":-3}");
}

}  // namespace
