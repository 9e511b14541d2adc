// Start, stop, shutdown and power events. What runs later on pool threads is in deferred_work.cpp.
#include "service/zorvalis_service.h"

#include <array>
#include <string>

#include "base/text.h"
#include "client/rpc_server.h"
#include "common/device_identity.h"
#include "common/log.h"
#include "common/registry.h"
#include "common/version.h"
#include "jobs/job_manager.h"
#include "jobs/schedule_predicates.h"
#include "service/power_settings.h"

namespace zorvalis {
namespace {

// Windows' names and numbers.
enum PowerEventType : std::uint32_t {
    PBT_APMSUSPEND = 4,
    PBT_APMRESUMESUSPEND = 7,
    PBT_POWERSETTINGCHANGE = 0x8013,
};

platform::PoolTimer* StartTimer(platform::PoolCallback callback) {
    platform::PoolTimer* const timer = platform::create_pool_timer(callback, nullptr);
    if (timer != nullptr) {
        platform::start_pool_timer(timer, kWorkDelay);
    }
    return timer;
}

void Collect(const wchar_t* action, JobTrigger trigger) {
    JobManager::GetInstance().DoCollectJob(action, trigger, false, 0);
}

void OnLid(std::uint32_t data) {
    if (data == 1) {
        LogMessage("Lid Open");
        Collect(L"lid_open_close", JOB_TRIGGER_LID_OPEN);
    } else if (data == 0) {
        Collect(L"lid_open_close", JOB_TRIGGER_LID_CLOSE);  // Kept: nothing is logged for it
    }
}

void OnPowerSource(std::uint32_t data) {
    if (data == 0) {
        LogMessage("AC in ");
        Collect(L"ac_dc", JOB_TRIGGER_AC_IN);
    } else if (data == 1) {
        LogMessage("AC out");
        Collect(L"ac_dc", JOB_TRIGGER_AC_OUT);
    }
}

// The first time that the display goes on after a shutdown is recorded as the machine's power-on.
void OnDisplay(std::uint32_t data, bool isPowerOnOwed) {
    constexpr std::array<const char*, 3> kWords = {"Display_Off", "Display_On", "Display_Dimmed"};
    if (data >= kWords.size()) {
        return;
    }
    LogMessage(kWords[data]);
    if (data == 1 && isPowerOnOwed) {
        LogMessage("ISPOWERON = true, job->DoCollectJob(POWERONOFF, JOB_TRIGGER_POWER_ON, false)");
        Collect(L"poweronoff", JOB_TRIGGER_POWER_ON);
        WriteRegDword(kLocalMachine, kProductKey, L"ISPOWERON", 0);
    }
}

// False when the change is dropped. Windows answers a registration with the present state, as if it had just changed.
// So lid and power source count only after the first pass (SKIP_ONPOWEREVENT); real changes before that are lost too.
bool OnSettingChange(const platform::PowerSettingChange& change, bool skips, bool isPowerOnOwed) {
    if (change.setting == GUID_LIDSWITCH_STATE_CHANGE) {
        if (skips) {
            LogMessage("Get power on event , skip OnPowerEvent GUID_LIDSWITCH_STATE_CHANGE");
            return false;
        }
        OnLid(change.data);
    } else if (change.setting == GUID_ACDC_POWER_SOURCE) {
        if (skips) {
            LogMessage("Get power on event , skip OnPowerEvent GUID_ACDC_POWER_SOURCE");
            return false;
        }
        OnPowerSource(change.data);
    } else if (change.setting == GUID_CONSOLE_DISPLAY_STATE) {
        OnDisplay(change.data, isPowerOnOwed);
    }
    return true;
}

}  // namespace

void ZorvalisService::OnStart(std::uint32_t, wchar_t**) {
    StartTrace();
    WriteRegString(kLocalMachine, kProductKey, L"SERVICEVERSION", WidenBytes(kServiceVersion));
    WriteRegString(kLocalMachine, kProductKey, L"ISSERVICERUNNING", L"1");
    if (isReadyToDoJobByManufacturingDate()) {
        LogMessage("[ZorvalisService] OnStart------------");
        LogMessage("[ZorvalisService] RandomUUID: " + getDeviceUUID());
        if (ReadRegString(kLocalMachine, kProductKey, L"MainSwitch") == ERROR_READREG) {
            LogMessage("[ZorvalisService] set main switch to enable.");
            WriteRegString(kLocalMachine, kProductKey, L"MainSwitch", L"1");
        }
        WriteRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT", 1);
    }
    // Started on every machine, also on one that may not collect yet.
    LogMessage("[ZorvalisService] call RPC service. (Thread) Start");
    if (platform::PoolWork* const work = platform::create_pool_work(RpcServiceWork, nullptr)) {
        platform::submit_pool_work(work);
    }
    LogMessage("[ZorvalisService] call RPC service. (Thread) End");
    SetTimerThread(0);
    SetTimerThread(1);
    LogMessage("[ZorvalisService] set the reload setting file timer thread (Thread) Start");
    reloadSettingTimer = StartTimer(ReloadSettingFileTimer);
    LogMessage("[ZorvalisService] set the reload setting file timer thread (Thread) End");
    LogMessage("[ZorvalisService] OnStart End----------------------------");
}

void ZorvalisService::SetTimerThread(int which) {
    if (which == 0) {
        LogMessage("[ZorvalisService] Set the task scheduler creator timer thread. (Thread) Start");
        taskSchedulerTimer = StartTimer(TaskSchedulerCreatorTimer);
        LogMessage("[ZorvalisService] Set the task scheduler creator timer thread. (Thread) End");
    } else if (which == 1) {
        LogMessage("[ZorvalisService] Set the WMI receiver thread. (Thread) Start");
        LogMessage("[ZorvalisService] SN: " + getSerialNumber());
        wmiReceiverTimer = StartTimer(WmiReceiverTimer);
        LogMessage("[ZorvalisService] Set the WMI receiver thread. (Thread) End");
    }
}

// Writes no power-off record: the machine goes on running. The timers' work ends with the process.
void ZorvalisService::OnStop() {
    LogMessage("[ZorvalisService] OnStop +++++++++++++++++++++++");
    RpcServerStop();
    LogMessage("[ZorvalisService] OnStop -----------------------");
    StopTrace();
}

void ZorvalisService::OnShutdown() {
    LogMessage("[ZorvalisService] OnShutdown +++++++++++++++++++++++");
    JobManager::GetInstance().DoJob(L"jobDisableTaskScheduler", 0, 0);
    Collect(L"poweronoff", JOB_TRIGGER_POWER_OFF);
    WriteRegDword(kLocalMachine, kProductKey, L"ISPOWERON", 1);
    LogMessage("[ZorvalisService] OnShutdown -----------------------");
}

void ZorvalisService::OnPowerEvent(std::uint32_t eventType, void* eventData) {
    LogMessage("[ZorvalisService] OnPowerEvent : " + std::to_string(eventType) + "++++++++++++");
    JobManager& jobManager = JobManager::GetInstance();
    // Kept: both are read for every event, also for those that need neither.
    const bool skips = ReadRegDword(kLocalMachine, kProductKey, L"SKIP_ONPOWEREVENT") == L"1";
    const bool isPowerOnOwed = ReadRegDword(kLocalMachine, kProductKey, L"ISPOWERON") == L"1";
    if (eventType == PBT_APMSUSPEND) {
        LogMessage("PBT_APMSUSPEND");
        jobManager.DoJob(L"jobDisableTaskScheduler", 0, 0);
        Collect(L"suspend_resume", JOB_TRIGGER_SUSPEND);
    } else if (eventType == PBT_APMRESUMESUSPEND) {
        LogMessage("PBT_APMRESUMESUSPEND");
        SetTimerThread(0);
        Collect(L"suspend_resume", JOB_TRIGGER_RESUME);
    } else if (eventType == PBT_POWERSETTINGCHANGE && eventData != nullptr) {
        const auto& change = *static_cast<const platform::PowerSettingChange*>(eventData);
        if (!OnSettingChange(change, skips, isPowerOnOwed)) {
            return;  // Kept: without the closing line
        }
    }
    LogMessage("[ZorvalisService] OnPowerEvent : " + std::to_string(eventType) + "---------------");
}

void ZorvalisService::OnSessionChange() {
    LogMessage("[ZorvalisService] OnSessionChange +++++++++++++++++++++++");
    LogMessage("[ZorvalisService] OnSessionChange -----------------------");
}

}  // namespace zorvalis
