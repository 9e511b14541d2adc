// The service's protocol in this process, and the built executable as a service of the stand-in machine.
#include "common/wide_to_utf8.h"
#include "service/service_base.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "jobs/task_scheduler_setting.h"
#include "platform/stand_in/line_client.h"
#include "platform/thread_pool.h"
#include "service/service_install.h"
#include "service/zorvalis_service.h"
#include "support/notebook.h"
#include "support/traced.h"

namespace zorvalis {
namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

constexpr char kLid[] = "ba3e0f4d-b817-4094-a2d1-d56379e6a0f3";
constexpr char kSource[] = "5d3e9a59-e9d5-4b00-a6bd-ff34ff516548";
constexpr char kDisplay[] = "6fe69556-704a-47a0-8f24-c28d936fda47";

// A member of each object in one of the machine's logs.
Lines Logged(const char* file, std::initializer_list<const char*> members) {
    Lines lines;
    std::istringstream log(read_text(platform::machine_folder() + "/" + file));
    for (std::string line; std::getline(log, line);) {
        const Json object = ParseJson(line);
        std::string joined;
        for (const char* member : members) {
            const Json& value = object[member];
            joined += (joined.empty() ? "" : " ") + (value.is_string() ? std::string(value) : DumpJson(value));
        }
        lines.push_back(joined);
    }
    return lines;
}

// Sends one control once the service listens; the answer.
std::string Control(const Json& control) {
    platform::LineClient client;
    std::string answer = "nobody listens";
    if (Comes([&] { return client.open("run/control", 30); }) && client.send(DumpJson(control))) {
        client.receive(answer);
    }
    return answer;
}

std::string Control(std::uint32_t number, std::uint32_t event = 0) {
    return Control({{"control", number}, {"event", event}});
}

std::string Change(const char* setting, std::uint32_t data) {
    return Control({{"control", 13}, {"event", 0x8013}, {"setting", setting}, {"data", data}});
}

constexpr char kDone[] = R"({"result":0})";

// Every operation does as the test says.
class TestService : public CServiceBase {
public:
    TestService() : CServiceBase(kServiceName, true, true, true) {}
    void OnStart(std::uint32_t, wchar_t**) override { act(); }
    void OnStop() override { act(); }
    void OnPause() override { act(); }
    void OnContinue() override { act(); }
    void OnShutdown() override { act(); }
    void OnPowerEvent(std::uint32_t, void*) override { act(); }
    void OnSessionChange() override { ++sessionChanges; }

    std::function<void()> act = [] {};
    int sessionChanges = 0;
};

// A service of this process from its start to its stop.
class Served {
public:
    explicit Served(CServiceBase& service) {
        ::setenv("ZORV_SERVICE", "Zorvalis", 1);
        thread_ = std::thread([&service] { EXPECT_TRUE(CServiceBase::Run(service)); });
    }
    ~Served() { thread_.join(); }

private:
    std::thread thread_;
};

TEST(ServiceBase, ReportsEachControlWithItsStates) {
    const TestMachine machine;
    TestService service;
    {
        const Served served(service);
        EXPECT_TRUE(Comes([] { return Control(4) == kDone; }));
        for (const std::uint32_t control : {4U, 2U, 3U, 14U, 128U}) {
            EXPECT_EQ(Control(control), kDone) << control;
        }
        EXPECT_EQ(Control(5), R"({"result":1052})") << "plain shutdown was not asked for";
        EXPECT_EQ(Control(1), kDone);
    }
    EXPECT_EQ(service.sessionChanges, 1);
    EXPECT_EQ(Logged("status.jsonl", {"state", "accepted"}),
              (Lines{"2 451", "4 451", "6 451", "7 451", "5 451", "4 451", "3 451", "1 451"}));
    EXPECT_EQ(Logged("provider.jsonl", {"level", "text"}), Lines{"2 Service trying to start."});
}

TEST(ServiceBase, LeavesATrailOfEachOperationThatFails) {
    const struct {
        const char *name, *words;
        std::uint32_t control;  // 0 for the start
        Lines states;           // behind those of the start
    } cases[] = {{"Start", "start", 0, {}},
                 {"Stop", "stop", 1, {"3 0", "4 0"}},
                 {"Pause", "pause", 2, {"6 0", "4 0"}},
                 {"Continue", "resume", 3, {"5 0", "7 0"}},
                 {"Shutdown", "shut down", 15, {}},
                 {"PowerEvent", "get power event", 13, {}}};
    for (const auto& one : cases) {
        for (const bool known : {true, false}) {
            const TestMachine machine;
            const std::function<void()> succeed = [] {}, fail = [known] {
                if (known) {
                    throw std::uint32_t{0xABC};
                }
                throw std::runtime_error("any");
            };
            TestService service;
            service.act = one.control == 0 ? fail : succeed;
            Lines states = {"2 0", one.control != 0 ? "4 0" : known ? "1 2748" : "1 0"};
            {
                const Served served(service);
                if (one.control != 0) {
                    EXPECT_TRUE(Comes([] { return Control(4) == kDone; }));
                    service.act = fail;
                    EXPECT_EQ(Control(one.control), kDone) << one.name;
                    states.insert(states.end(), one.states.begin(), one.states.end());
                    service.act = succeed;
                    EXPECT_EQ(Control(15), kDone);
                    states.emplace_back("1 0");
                }
            }
            EXPECT_EQ(Logged("status.jsonl", {"state", "exitCode"}), states) << one.name;
            EXPECT_EQ(Logged("provider.jsonl", {"level", "text"}),
                      (Lines{"2 Service trying to start.",
                             known ? std::string("2 Service ") + one.name + " failed w/err 0x00000abc"
                                   : std::string("2 Service failed to ") + one.words + "."}));
        }
    }
}

TEST(ZorvalisService, StartsAndStopsInOrderAlsoWithoutItsTimers) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetSN": "SN 1"})");
    write_text(platform::machine_folder() + "/power.json", R"({"lid": 0, "ac": 1, "display": 1})");
    platform::refuse_pool_items(true);
    ZorvalisService service(kServiceName, true, true, false);
    SetSession(4, 1);
    {
        const Served served(service);
        EXPECT_TRUE(Comes([] { return Control(4) == kDone; }));
        EXPECT_TRUE(Comes([] {
            const Lines trace = TraceLines();
            return std::count(trace.begin(), trace.end(), "[ZorvalisService] OnPowerEvent : 32787---------------") == 1;
        }));
        EXPECT_EQ(Control(14), kDone);
        EXPECT_EQ(Control(1), kDone);
    }
    platform::refuse_pool_items(false);
    Lines lines = TraceLines();
    const auto ours = [](const std::string& line) {
        return !line.starts_with("[ZorvalisService]") && !line.starts_with("Get power") && !line.starts_with("Display");
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), ours), lines.end());
    EXPECT_EQ(lines, (Lines{"[ZorvalisService] OnStart------------",
                            "[ZorvalisService] RandomUUID: 00112233-4455-6677-8899-aabbccddeeff",
                            "[ZorvalisService] set main switch to enable.",
                            "[ZorvalisService] call RPC service. (Thread) Start",
                            "[ZorvalisService] call RPC service. (Thread) End",
                            "[ZorvalisService] Set the task scheduler creator timer thread. (Thread) Start",
                            "[ZorvalisService] Set the task scheduler creator timer thread. (Thread) End",
                            "[ZorvalisService] Set the WMI receiver thread. (Thread) Start",
                            "[ZorvalisService] SN: SN1",
                            "[ZorvalisService] Set the WMI receiver thread. (Thread) End",
                            "[ZorvalisService] set the reload setting file timer thread (Thread) Start",
                            "[ZorvalisService] set the reload setting file timer thread (Thread) End",
                            "[ZorvalisService] OnStart End----------------------------",
                            "[ZorvalisService] OnPowerEvent : 32787++++++++++++",
                            "Get power on event , skip OnPowerEvent GUID_LIDSWITCH_STATE_CHANGE",
                            "[ZorvalisService] OnPowerEvent : 32787++++++++++++",
                            "Get power on event , skip OnPowerEvent GUID_ACDC_POWER_SOURCE",
                            "[ZorvalisService] OnPowerEvent : 32787++++++++++++",
                            "Display_On",
                            "[ZorvalisService] OnPowerEvent : 32787---------------",
                            "[ZorvalisService] OnSessionChange +++++++++++++++++++++++",
                            "[ZorvalisService] OnSessionChange -----------------------",
                            "[ZorvalisService] OnStop +++++++++++++++++++++++",
                            "[ZorvalisService] OnStop -----------------------"}));
    EXPECT_EQ(machine.stored(), "") << "the present states are no events";
    EXPECT_EQ(Value(L"SERVICEVERSION") + L" " + Value(L"ISSERVICERUNNING") + L" " + Value(L"MainSwitch"),
              L"2.0.6.0 1 1");
    EXPECT_EQ(ReadRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT"), L"1");
}

TEST(ZorvalisService, LeavesAMachineAloneThatIsNotReady) {
    Notebook machine;
    WriteRegString(kLocalMachine, kSetupStateKey, L"ImageState", L"");
    platform::refuse_pool_items(true);
    ZorvalisService service(kServiceName, true, true, false);
    service.OnStart(0, nullptr);
    service.OnStop();
    platform::refuse_pool_items(false);
    EXPECT_EQ(Value(L"SERVICEVERSION"), L"2.0.6.0");
    EXPECT_EQ(Value(L"MainSwitch"), ERROR_READREG);
    EXPECT_EQ(ReadRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT"), ERROR_READREG);
}

// The built executable, served by the machine, with its two minutes shortened.
class RunningService : public testing::Test {
protected:
    RunningService() {
        write_text(platform::machine_folder() + "/clock.json", R"({"wait": 0.001})");
        write_text(platform::machine_folder() + "/power.json", R"({"lid": 1, "ac": 0})");
        SetSession(4, 1);
        Start();
    }
    ~RunningService() override {
        if (process_.joinable()) {
            Stop(1);
        }
    }

    void Start() {
        process_ = std::thread([this] { EXPECT_EQ(std::system(("ZORV_SERVICE=Zorvalis " + executable).c_str()), 0); });
        EXPECT_TRUE(Comes([] { return Change(kDisplay, 2) == kDone; })) << "the last setting that it registers for";
    }

    void Stop(std::uint32_t control) {
        EXPECT_EQ(Control(control), kDone);
        process_.join();
    }

    static void Power(const wchar_t* value, std::uint32_t number) {
        ASSERT_TRUE(WriteRegDword(kLocalMachine, kProductKey, value, number));
    }

    static std::wstring Power(const wchar_t* value) { return ReadRegDword(kLocalMachine, kProductKey, value); }

    static std::string Task() {
        return read_text(platform::machine_folder() + "/tasks/" + WideToUtf8(kCollectionTask) + ".json");
    }

    static bool Says(const std::string& words) {
        const Lines lines = TraceLines();
        return std::find(lines.begin(), lines.end(), words) != lines.end();
    }

    std::string Triggers() const {
        std::string joined;
        for (const auto& row : machine.query(FileOf("E"), "SELECT freq FROM UserBehavior ORDER BY rowid")) {
            joined += row[0] + " ";
        }
        return joined;
    }

    Notebook machine;
    const std::string executable = machine.install_service();

private:
    std::thread process_;
};

TEST_F(RunningService, TurnsPowerEventsIntoRecordsUnlessTheyAreSuppressed) {
    write_text(platform::machine_folder() + "/clock.json", R"({"wait": 0.01})");  // a busy machine is slower than 60 ms
    EXPECT_TRUE(Comes([] { return !Task().empty(); })) << "a minute's wait for the job lock is short here";
    EXPECT_EQ(Change(kLid, 0), kDone);
    EXPECT_EQ(Change(kSource, 1), kDone);
    EXPECT_EQ(machine.stored(), "");
    Power(L"SKIP_ONPOWEREVENT", 0);  // as the first pass does
    for (const auto& [setting, data] : {std::pair{kLid, 0U},
                                        {kLid, 1U},
                                        {kLid, 2U},
                                        {kSource, 0U},
                                        {kSource, 1U},
                                        {kSource, 2U},
                                        {kDisplay, 0U},
                                        {kDisplay, 1U},
                                        {kDisplay, 2U},
                                        {kDisplay, 3U}}) {
        EXPECT_EQ(Change(setting, data), kDone);
    }
    EXPECT_EQ(Control(13, 0x8013), kDone) << "without data";
    EXPECT_EQ(Triggers(), "17 16 14 15 ");
    Power(L"ISPOWERON", 1);
    EXPECT_EQ(Change(kDisplay, 2), kDone);
    EXPECT_EQ(Power(L"ISPOWERON"), L"1");
    EXPECT_EQ(Change(kDisplay, 1), kDone);
    EXPECT_EQ(Change(kDisplay, 1), kDone);
    EXPECT_EQ(Power(L"ISPOWERON"), L"0");
    EXPECT_EQ(Control(13, 4), kDone);
    EXPECT_FALSE(bool(ParseJson(Task())["enabled"]));
    EXPECT_EQ(Control(13, 7), kDone);
    EXPECT_TRUE(Comes([] { return bool(ParseJson(Task())["enabled"]); })) << "two minutes after the resume";
    EXPECT_EQ(Control(13, 10), kDone);
    Stop(15);
    EXPECT_EQ(Triggers(), "17 16 14 15 10 12 13 11 ");
    EXPECT_EQ(Power(L"ISPOWERON"), L"1");
    EXPECT_FALSE(bool(ParseJson(Task())["enabled"]));
    EXPECT_EQ(Logged("status.jsonl", {"state", "checkpoint", "accepted"}), (Lines{"2 1 449", "4 0 449", "1 0 449"}));
    Start();
    EXPECT_EQ(Power(L"SKIP_ONPOWEREVENT"), L"1") << "again";
    Stop(1);
    EXPECT_EQ(Power(L"ISPOWERON"), L"1") << "a plain stop is no power-off";
}

TEST_F(RunningService, ReloadsItsSettingsWhenAnotherProcessAsksForIt) {
    const std::string reload = "[ReloadSettingFIleServiceTimerThread] Need Reload Setting FIle";
    EXPECT_TRUE(Comes([&] { return Power(L"NEEDRELOAD_SETTING_FILE") == L"0"; })) << "written at first, in every case";
    Power(L"SKIP_ONPOWEREVENT", 0);
    machine.setting(R"({"version": "2.0.6.0", "intervalTimer": "1", "totalCollectTime": "600", "ac_dc": "off"})");
    SetValue(L"Other", L"any");
    EXPECT_EQ(Change(kSource, 0), kDone);
    EXPECT_EQ(Triggers(), "14 ") << "a file alone changes nothing";
    EXPECT_TRUE(Comes([&] {  // the loop may not listen yet
        Power(L"NEEDRELOAD_SETTING_FILE", 1);
        return Says(reload);
    }));
    EXPECT_TRUE(Comes([&] { return Power(L"NEEDRELOAD_SETTING_FILE") == L"0"; }));
    EXPECT_EQ(Change(kSource, 0), kDone);
    EXPECT_EQ(Triggers(), "14 ");
    machine.setting("{");
    Power(L"NEEDRELOAD_SETTING_FILE", 1);
    EXPECT_TRUE(Comes([&] { return Power(L"NEEDRELOAD_SETTING_FILE") == L"0"; })) << "a broken file ends no loop";
    machine.setting(R"({"version": "2.0.6.0", "intervalTimer": "1", "totalCollectTime": "600", "ac_dc": "ac_dc"})");
    Power(L"NEEDRELOAD_SETTING_FILE", 1);
    EXPECT_TRUE(Comes([&] { return Power(L"NEEDRELOAD_SETTING_FILE") == L"0"; }));
    EXPECT_EQ(Change(kSource, 1), kDone);
    EXPECT_EQ(Triggers(), "14 15 ");
}

TEST_F(RunningService, RecordsHardwareEventsBesideAPass) {
    EXPECT_TRUE(Comes([&] {
        platform::LineClient client;
        return client.open("run/events", 1) && client.send(R"({"EventID": 154})") &&
               machine.stored().find("W ") != std::string::npos;
    }));
    EXPECT_EQ(std::system((executable + " -j0").c_str()), 0);
    EXPECT_EQ(Power(L"SKIP_ONPOWEREVENT"), L"0");
    EXPECT_EQ(Change(kLid, 0), kDone);
    EXPECT_EQ(Triggers(), "17 ");
}

// Memory in KiB, threads, descriptors.
std::array<std::size_t, 3> Held(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::size_t memory = 0;
    std::ifstream status(folder + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            memory = std::stoul(line.substr(6));
        }
    }
    const auto count = [](const std::string& path) {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(path), fs::directory_iterator()));
    };
    return {memory, count(folder + "/task"), count(folder + "/fd")};
}

TEST_F(RunningService, StopsWhenItsEndpointCannotBeOpened) {
    Stop(1);
    fs::create_directories(platform::machine_folder() + "/run/ZorvHelpRpcEndpoint/taken");
    EXPECT_EQ(std::system(("ZORV_SERVICE=Zorvalis " + executable).c_str()), 0);
    EXPECT_TRUE(Says("[ZorvalisService] OnStop -----------------------"));
    EXPECT_EQ(Logged("status.jsonl", {"state"}).back(), "1");
    EXPECT_FALSE(fs::exists(platform::machine_folder() + "/refused-status.jsonl"));
}

TEST_F(RunningService, GrowsThroughNoStormAndStoresWhatTheLimitsAllow) {
    platform::LineClient client;
    ASSERT_TRUE(client.open("run/control", 60));
    const auto storm = [&](std::initializer_list<Json> controls, int rounds) {
        std::string answer;
        for (int round = 0; round < rounds; ++round) {
            for (const Json& control : controls) {
                ASSERT_TRUE(client.send(DumpJson(control)) && client.receive(answer));
                ASSERT_EQ(answer, kDone);
            }
            Power(L"Storm", static_cast<std::uint32_t>(round));  // wakes the reload loop and the receiver
        }
    };
    const auto change = [](const char* setting, int data) {
        return Json{{"control", 13}, {"event", 0x8013}, {"setting", setting}, {"data", data}};
    };
    fs::remove(platform::machine_folder() + "/trace.json");
    EXPECT_TRUE(Comes([] {  // what its two minutes bring is there
        return !Task().empty() && Power(L"NEEDRELOAD_SETTING_FILE") == L"0" &&
               platform::LineClient().open("run/events", 1);
    }));
    storm({change(kDisplay, 2), change(kLid, 0), change(kSource, 1), Json{{"control", 4}}}, 100);
    const auto before = Held(client.process());
    storm({change(kDisplay, 2), change(kLid, 0), change(kSource, 1), Json{{"control", 4}}}, 2500);
    const auto after = Held(client.process());
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which keep what is freed
    EXPECT_LT(after[0], before[0] + 1024) << "KiB";
#endif
    EXPECT_LE(after[1], before[1] + 1) << "threads";
    EXPECT_LE(after[2], before[2] + 4) << "descriptors, of which a wait for the registry takes some";
    EXPECT_EQ(machine.stored(), "");
    Power(L"SKIP_ONPOWEREVENT", 0);
    storm({change(kLid, 0)}, 115);
    EXPECT_EQ(machine.stored(), "E Thermal 109, E Battery_Power 109, E UserBehavior 109");
}

TEST(Administration, InstallsAndRemovesTheServiceAndItsTasks) {
    Notebook machine;
    const std::string executable = machine.install_service();
    const auto run = [&](const std::string& option) {
        const std::string output = platform::machine_folder() + "/output";
        EXPECT_EQ(std::system((executable + " " + option + " >" + output).c_str()), 0);
        return read_text(output);
    };
    EXPECT_EQ(run(""), "Service failed to run w/err 0x00000427\n");
    EXPECT_EQ(run("-remove"), "OpenService failed w/err 0x00000424\n");
    EXPECT_EQ(run("/INSTALL"), "Zorvalis is installed.\n");
    const Json entry = ParseJson(read_text(platform::machine_folder() + "/services/Zorvalis.json"));
    EXPECT_EQ(entry["path"], executable);
    EXPECT_TRUE(entry["type"] == 16 && entry["startType"] == 2 && entry["dependencies"].empty());
    EXPECT_EQ(run("-install"), "CreateService failed w/err 0x00000431\n");
    TaskSchedulerSetting().SetSpecificTimeTriggerTmer(kCollectionTask, L"PT5M", L"PT14M", L"-j0", 0);
    TaskSchedulerSetting().SetSpecificTimeTriggerTmer(kActivationTask, L"PT5M", L"PT14M", L"-j1", 0);
    std::thread service([&] { std::system(("ZORV_SERVICE=Zorvalis " + executable).c_str()); });
    EXPECT_TRUE(Comes([] { return Control(4) == kDone; }));
    write_text(platform::machine_folder() + "/clock.json", R"({"wait": 0.001})");
    EXPECT_EQ(run("-remove"), "Stopping Zorvalis.\nZorvalis is stopped.\nZorvalis is removed.\n");
    service.join();
    EXPECT_EQ(read_text(platform::machine_folder() + "/services/Zorvalis.json"), "");
    std::vector<platform::FolderEntry> tasks;
    platform::list_folder(platform::machine_folder() + "/tasks", tasks);
    EXPECT_EQ(tasks.size(), 0U);
    EXPECT_EQ(Value(L"SERVICEVERSION"), L"2.0.6.0") << "the registry stays";
}

}  // namespace
}  // namespace zorvalis
