// The built executable in the hands of the system: the real one where it can do it, the doubles where Wine cannot.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "platform/windows/handles.h"
#include "windows/double/control_data.h"
#include "windows/installed_executable.h"

namespace zorvalis {
namespace {

using Lines = std::vector<std::string>;
using OwnedService = platform::Owned<::CloseServiceHandle, SC_HANDLE>;

constexpr GUID kLid = {0xBA3E0F4D, 0xB817, 0x4094, {0xA2, 0xD1, 0xD5, 0x63, 0x79, 0xE6, 0xA0, 0xF3}};
constexpr GUID kPowerSource = {0x5D3E9A59, 0xE9D5, 0x4B00, {0xA6, 0xBD, 0xFF, 0x34, 0xFF, 0x51, 0x65, 0x48}};
constexpr GUID kDisplay = {0x6FE69556, 0x704A, 0x47A0, {0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47}};

enum Timer { kTaskTimer, kEventTimer, kTimerOfFirstResume = 3 };  // the third one is the reload's

const std::string kTask = NarrowBytes(doubles::kTask);
constexpr char kLastOfStart[] = "RegisterPowerSettingNotification service {6FE69556";
constexpr char kLocator[] = "CoCreateInstance.{4590F811-1D3A-11D0-891F-00AA004B2E24}";
constexpr char kApartment[] = "CoCreateInstance.{49BD2028-1523-11D1-AD79-00C04FD8FDFF}";
constexpr char kLeave[] = "CoUninitialize";

std::wstring Number(const wchar_t* name) {
    return ReadRegDword(kLocalMachine, kProductKey, name);
}

Lines Joined(Lines lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

class Executable : public InstalledExecutable {
protected:
    std::string Recorded(const char* letter) const {
        return machine.row(letter, "SELECT group_concat(freq, ' ') FROM UserBehavior");
    }

    // The next lines that are no traces, to one that begins with `last`; a start boundary without its time.
    Lines Until(const std::string& last) {
        Lines lines = doubles.until(last);
        for (std::string& line : lines) {
            if (line.starts_with("ITrigger.put_StartBoundary")) {
                std::replace_if(
                    line.begin(), line.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
            }
        }
        return lines;
    }

    // Makes each step that `good` shows fail, one after the other. Each of an attempt's `count` operations gets as far
    // as the step that fails, holds nothing afterwards, and says so in the event log.
    template <class Attempt>
    void FailEach(const Lines& good, int count, Attempt attempt) {
        for (auto step = good.begin(); step != good.end(); ++step) {
            const std::string name = step->substr(0, step->find(' '));
            doubles.fail({{name, 0x80070005}});
            attempt();
            for (int operation = 0; operation < count; ++operation) {
                Lines lines = Until("ReportEventW");
                EXPECT_TRUE(lines.back().ends_with(std::to_string(E_ACCESSDENIED))) << lines.back();
                lines.pop_back();
                const Lines left = name == "CoInitializeEx" ? Lines{} : Lines{"CoUninitialize 0"};
                EXPECT_EQ(lines, Joined(Lines(good.begin(), step + 1), left));
            }
        }
        doubles.fail({});
    }
};

const Lines kRootFolder = {"CoInitializeEx 0", "CoCreateInstance.{0F87369F-A4E5-4CFC-BD3E-73E6154572DD} 1",
                           "ITaskService.Connect empty empty empty empty", "ITaskService.GetFolder \\"};

// A service that has started, and what was written down by then.
class RunningService : public Executable {
protected:
    ServiceProcess service{path};
    const Lines start_lines = [this] {
        EXPECT_EQ(service.start(), 0U);
        return doubles.until(kLastOfStart);
    }();
};

TEST_F(Executable, IsInstalledAndStoppedAndRemoved) {
    EXPECT_EQ(Run("-install"), "CreateService failed w/err 0x00000431\n") << "it is installed already";
    const OwnedService manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const auto open = [&] { return OwnedService(::OpenServiceW(manager.get(), L"Zorvalis", SERVICE_QUERY_CONFIG)); };
    {
        const OwnedService service = open();
        ASSERT_NE(service, nullptr);
        DWORD size = 0;
        alignas(QUERY_SERVICE_CONFIGW) BYTE buffer[2048];
        auto& config = *reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
        ASSERT_TRUE(::QueryServiceConfigW(service.get(), &config, sizeof buffer, &size));
        EXPECT_EQ((std::array{config.dwServiceType, config.dwStartType, config.dwErrorControl}),
                  (std::array<DWORD, 3>{0x10, 2, 1}));
        EXPECT_EQ(NarrowBytes(config.lpBinaryPathName), path) << "without quotes";
        EXPECT_STREQ(config.lpDisplayName, L"Zorvalis");
        EXPECT_STREQ(config.lpServiceStartName, L"LocalSystem");
    }
    doubles.fail({{"ControlService", 1}});
    EXPECT_EQ(Run("-remove"), "Stopping Zorvalis..\nZorvalis is stopped.\nZorvalis is removed.\n");
    EXPECT_EQ(open(), nullptr);
}

TEST_F(Executable, GoesOnWithoutItsEventProvider) {
    doubles.fail({{"EventRegister", 5}});
    EXPECT_EQ(Run("-j1"), "Provider not registered. EventRegister failed with 5\n");
}

TEST_F(Executable, IsStoppedForTheManagerWhenItsEndpointFails) {
    doubles.fail({{"RpcServerListen", RPC_S_OUT_OF_RESOURCES}});
    for (int round = 0; round < 5; ++round) {
        ServiceProcess service(path);
        service.start();
        doubles.until("SetServiceStatus 10 1 ", {"none"});
        EXPECT_EQ(service.end(), 0U);
        const OwnedService manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
        const OwnedService entry(::OpenServiceW(manager.get(), L"Zorvalis", SERVICE_QUERY_STATUS));
        SERVICE_STATUS status{};
        ASSERT_TRUE(::QueryServiceStatus(entry.get(), &status));
        EXPECT_EQ(status.dwCurrentState, SERVICE_STOPPED);
    }
}

TEST_F(RunningService, ReportsItsStatesAndTakesControlsItDoesNotKnow) {
    const std::string timer = "SetThreadpoolTimer -1200000000 0 0";
    const std::string power = "RegisterPowerSettingNotification service ";
    EXPECT_EQ(start_lines,
              (Lines{"EventRegister {BE2E880E-F79F-4C30-9C95-09F003A0A7EA}", "RegisterServiceCtrlHandlerExW Zorvalis",
                     "EventWriteString 2 0 Service trying to start.", "SetServiceStatus 10 2 1c1 0 0 1 0", timer, timer,
                     timer, "SetServiceStatus 10 4 1c1 0 0 0 0", power + "{BA3E0F4D-B817-4094-A2D1-D56379E6A0F3} 1",
                     power + "{5D3E9A59-E9D5-4B00-A6BD-FF34FF516548} 1",
                     power + "{6FE69556-704A-47A0-8F24-C28D936FDA47} 1"}));
    for (const std::uint32_t control : {4, 5, 6, 12, 14, 16, 128, 2, 3, 1}) {
        EXPECT_EQ(service.control(control, 5), 0U) << control;
    }
    EXPECT_EQ(service.end(), 0U);
    EXPECT_EQ(doubles.until("UnregisterPower"),
              (Lines{"SetServiceStatus 10 6 1c1 0 0 2 0", "SetServiceStatus 10 7 1c1 0 0 3 0",
                     "SetServiceStatus 10 5 1c1 0 0 4 0", "SetServiceStatus 10 4 1c1 0 0 0 0",
                     "SetServiceStatus 10 3 1c1 0 0 5 0", "SetServiceStatus 10 1 1c1 0 0 0 0", "EventUnregister",
                     "UnregisterPowerSettingNotification service"}));
}

TEST_F(RunningService, RecordsPowerEventsAndDropsSomeUntilTheFirstPass) {
    service.fire_timer(kTaskTimer);
    doubles.until("ITaskFolder.RegisterTaskDefinition " + kTask);
    doubles.until(kLeave);
    service.change(kLid, 1);
    EXPECT_EQ(machine.stored(), "");
    Run("-j0");
    for (const auto& [setting, data] : {std::pair{kLid, 0}, {kPowerSource, 1}, {kDisplay, 2}}) {
        EXPECT_EQ(service.change(setting, data), 0U);
    }
    service.control(SERVICE_CONTROL_POWEREVENT, PBT_POWERSETTINGCHANGE);  // of nothing
    service.control(SERVICE_CONTROL_PRESHUTDOWN);
    EXPECT_EQ(doubles.until("SetServiceStatus 10 1", {"SetServiceStatus", "IRegisteredTask.put_Enabled"}),
              (Lines{"IRegisteredTask.put_Enabled " + kTask + " 0", "SetServiceStatus 10 1 1c1 0 0 0 0"}));
    EXPECT_EQ(service.end(), 0U);
    EXPECT_EQ(Recorded("E"), "17 15 11");
}

// Each resume sets the task anew, each suspension disables it.
TEST_F(RunningService, SetsTheTaskWhenEveryStepSucceeds) {
    machine.change_setting(R"({"suspend_resume": "off"})");
    int timer = kTimerOfFirstResume;
    const auto create = [&] {
        service.control(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMESUSPEND);
        doubles.until("SetThreadpoolTimer");
        service.fire_timer(timer++);
    };
    const Lines definition =
        Joined(kRootFolder, {"ITaskService.NewTask 0",
                             "ITaskDefinition.get_RegistrationInfo",
                             "IRegistrationInfo.put_Author ZorvTek Computer Inc.",
                             "ITaskDefinition.get_Principal",
                             "IPrincipal.put_RunLevel 1",
                             "ITaskDefinition.get_Settings",
                             "ITaskSettings.put_StartWhenAvailable 0",
                             "ITaskSettings.put_ExecutionTimeLimit PT14M",
                             "ITaskSettings.put_DisallowStartIfOnBatteries 0",
                             "ITaskDefinition.get_Triggers",
                             "ITriggerCollection.Create 1",
                             "ITrigger.QueryInterface",
                             "ITrigger.put_Id Zorvalis",
                             "ITrigger.put_StartBoundary 0000-00-00T00:00:00",
                             "ITrigger.get_Repetition",
                             "IRepetitionPattern.put_Interval PT5M",
                             "ITaskDefinition.get_Actions",
                             "IActionCollection.Create 0",
                             "IAction.QueryInterface",
                             "IAction.put_Path " + path,
                             "IAction.put_Arguments -j0",
                             "ITaskFolder.RegisterTaskDefinition " + kTask + " object 6 \"SYSTEM\" empty 4 \"\""});
    FailEach(definition, 1, create);
    create();
    EXPECT_EQ(Until(kLeave), Joined(definition, {"CoUninitialize 0"}));
}

TEST_F(RunningService, DisablesTheTaskOfExactlyItsName) {
    const auto disable = [this] { service.control(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND); };
    const Lines listing = Joined(kRootFolder, {"ITaskFolder.GetTasks 0", "IRegisteredTaskCollection.get_Count"});
    FailEach(listing, 2, disable);
    Lines expected = listing;
    for (const char* number : {"1", "2", "3"}) {
        expected.insert(expected.end(), {std::string("IRegisteredTaskCollection.get_Item ") + number,
                                         "IRegisteredTask.get_Name", "IRegisteredTask.get_State"});
    }
    disable();
    EXPECT_EQ(Until(kLeave), Joined(expected, {"IRegisteredTask.put_Enabled " + kTask + " 0", "CoUninitialize 0"}));
    EXPECT_EQ(Until(kLeave), Joined(expected, {"CoUninitialize 0"})) << "the other task is not there";
    // Each of three, and only the state's failure does not matter.
    for (const auto& [step, lines] : {std::pair{"IRegisteredTaskCollection.get_Item", 4U},
                                      {"IRegisteredTask.get_Name", 4U},
                                      {"IRegisteredTask.get_State", 5U}}) {
        doubles.fail({{step, 0x80070005}});
        disable();
        EXPECT_EQ(doubles.until(kLeave, {step, "IRegisteredTask.put", kLeave}).size(), lines) << step;
        doubles.until(kLeave);
    }
}

TEST_F(Executable, DeletesBothTasksOrSaysWhyNot) {
    FailEach(kRootFolder, 2, [this] { Run("-remove"); });
    doubles.fail({{"ITaskFolder.DeleteTask", 0x80070002}});
    EXPECT_EQ(Run("-remove"), "OpenService failed w/err 0x00000424\n") << "it was removed by the first attempt";
    for (const std::string& task : {kTask, std::string("Zorvalis_6DB16103-CD29-4A19-8B1B-B97E1944BE12")}) {
        EXPECT_EQ(Until(kLeave), Joined(kRootFolder, {"ITaskFolder.DeleteTask " + task + " 0", "CoUninitialize 0"}));
    }
}

TEST_F(RunningService, TurnsTwoHardwareEventsIntoRecords) {
    service.fire_timer(kEventTimer);
    EXPECT_EQ(doubles.until("RegNotify"),
              (Lines{"EventRegister {BE2E880E-F79F-4C30-9C95-09F003A0A7EA}", "CoInitializeEx 0",
                     kLocator + std::string(" 1"), "IWbemLocator.ConnectServer ROOT\\WMI null null null 0 null null",
                     "IWbemServices.QueryInterface", "IClientSecurity.SetBlanket object 10 0 null 3 3 null 0",
                     kApartment + std::string(" 4"), "IUnsecuredApartment.CreateObjectStub", "stub.QueryInterface",
                     "IWbemServices.ExecNotificationQueryAsync WQL SELECT * FROM ZorvQelWmiEvent 128 null",
                     "RegNotifyChangeKeyValue"}));
    const struct {
        const char *objects, *records;
    } cases[] = {
        {"EventID=154", "23"},
        {"Active=bstr:yes EventID=155", "23 24"},
        {"EventID=153", nullptr},
        {"EventID=null", nullptr},
        {"EventID=none", nullptr},
        {"EventID=bstr:many", nullptr},
        {"EventI=154 EventIDs=155", nullptr},
        {"", nullptr},
        {"EventID=153\nEventID=155", "23 24 24"},
    };
    for (const auto& [objects, records] : cases) {
        EXPECT_EQ(service.indicate(objects), 0U) << objects;
        if (records == nullptr) {
            EXPECT_EQ(Number(L"WMIEVENTID"), L"0") << objects;
            continue;
        }
        const Lines ended = doubles.until(kLeave, {"IWbemServices.CancelAsyncCall", kLeave});
        EXPECT_EQ(ended, (Lines{"IWbemServices.CancelAsyncCall", "CoUninitialize 0"})) << objects;
        EXPECT_EQ(Recorded("W"), records) << objects;
        doubles.until("RegNotify");
    }
    for (const int flags : {0, 1, 2}) {
        EXPECT_EQ(service.set_status(flags), 0U);
    }
    EXPECT_EQ(doubles.until("trace [EventSink] Call in progress", {"trace [EventSink]"}),
              (Lines{"trace [EventSink] Call complete. hResult", "trace [EventSink] Call in progress"}));
}

TEST_F(Executable, GivesUpHardwareEventsAtTheThirdFailure) {
    constexpr long kRefused = static_cast<long>(0x80070005);
    constexpr long kNoSink = static_cast<long>(0x80041008);
    const struct {
        const char *step, *words;
        long status;
    } steps[] = {
        {"CoInitializeEx", "CoInitializeEx", kRefused},
        {kLocator, "CoCreateInstance", kRefused},
        {"IWbemLocator.ConnectServer", "ConnectServer", kRefused},
        {"IWbemServices.QueryInterface", "CoSetProxyBlanket", kRefused},
        {"IClientSecurity.SetBlanket", "CoSetProxyBlanket", kRefused},
        {kApartment, "ExecNotificationQueryAsync", kNoSink},
        {"IUnsecuredApartment.CreateObjectStub", "ExecNotificationQueryAsync", kNoSink},
        {"stub.QueryInterface", "ExecNotificationQueryAsync", kNoSink},
        {"IWbemServices.ExecNotificationQueryAsync", "ExecNotificationQueryAsync", kRefused},
    };
    for (const auto* step = std::begin(steps); step != std::end(steps);) {
        doubles.fail({{step->step, kRefused}});
        ServiceProcess service(path);
        service.start();
        doubles.until(kLastOfStart);
        service.fire_timer(kEventTimer);
        for (const char* last : {"Sleep 60000", "Sleep 120000", "ReportEventW 2 setWmiEventReceiver trycount == 3"}) {
            const std::string failure = "trace  [WmiEventManager] Set WMI Event Receiver fail ";
            Lines expected = {failure + step->words + " failed:. Error code = " + std::to_string(step->status)};
            if (step != std::begin(steps)) {
                expected.push_back("CoUninitialize 0");
            }
            EXPECT_EQ(doubles.until(last, {failure, kLeave, last}), Joined(expected, {last})) << step->step;
            if (++step != std::end(steps)) {
                doubles.fail({{step->step, kRefused}});
            }
            if (*last == 'S') {
                service.wake();
            }
        }
        service.control(SERVICE_CONTROL_STOP);
        EXPECT_EQ(service.end(), 0U);
    }
}

}  // namespace
}  // namespace zorvalis
