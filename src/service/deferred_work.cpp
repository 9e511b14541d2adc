// What the service does on threads of the pool: it serves clients, and what it puts off until two minutes after its
// start.
#include "service/zorvalis_service.h"

#include "client/rpc_server.h"
#include "common/log.h"
#include "common/registry.h"
#include "common/root.h"
#include "events/wmi_event_manager.h"
#include "jobs/job_manager.h"
#include "service/service_install.h"

namespace zorvalis {
namespace {

constexpr wchar_t kNeedReload[] = L"NEEDRELOAD_SETTING_FILE";

bool IsReloadNeeded() {
    return ReadRegDword(kLocalMachine, kProductKey, kNeedReload) == L"1";
}

// A setting file that is broken does not end the loop: the next one may be sound.
void Reload() {
    AtRoot("ReloadSettingFile", [] { JobManager::GetInstance().ReloadSettingFile(); });
}

void SettleReload() {
    WriteRegDword(kLocalMachine, kProductKey, kNeedReload, 0);
}

void ReloadForEver() {
    LogMessage("[ZorvalisService] Create ReloadSettingFIleServiceTimerThread.");
    if (IsReloadNeeded()) {
        Reload();
    }
    SettleReload();
    for (;;) {
        WaitRegKeyChange(kLocalMachine, kProductKey);  // any value written there wakes it, our own included
        if (IsReloadNeeded()) {
            LogMessage("[ReloadSettingFIleServiceTimerThread] Need Reload Setting FIle");
            Reload();
            SettleReload();
        }
    }
}

void ReceiveWmiEvents() {
    LogMessage("[ZorvalisService] Create WMIServiceTimerThread.");
    const ZorvalisService service(kServiceName, true, true, false);  // for its event provider, and what its end does
    LogMessage("[ZorvalisService] Init Wmi Receiver Start");
    WmiEventManager manager;
    manager.initWmiEventReceiver(true);
    LogMessage("[ZorvalisService] Init Wmi Receiver End");
}

}  // namespace

void ZorvalisService::RpcServiceWork(void*) {
    bool ended = false;
    AtRoot("RpcServiceWork", [&] { ended = RpcServerStart() == 0; });
    if (!ended) {
        AtRoot("RpcServiceWork", StopServed);
    }
}

void ZorvalisService::TaskSchedulerCreatorTimer(void*) {
    AtRoot("TaskSchedulerCreatorTimer", [] {
        LogMessage("[ZorvalisService] Create TaskSchedulerCreatorTimerThread.");
        JobManager::GetInstance().DoJob(L"jobCreateTaskScheduler", 0, 0);
    });
}

void ZorvalisService::WmiReceiverTimer(void*) {
    AtRoot("WmiReceiverTimer", ReceiveWmiEvents);
}

void ZorvalisService::ReloadSettingFileTimer(void*) {
    AtRoot("ReloadSettingFileTimer", ReloadForEver);
}

}  // namespace zorvalis
