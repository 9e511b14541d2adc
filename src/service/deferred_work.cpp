// What the service does on threads of the pool: serving clients from its start on, and, two minutes later, making the
// scheduled task, receiving hardware events and reloading the setting file.
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

// A broken setting file goes to the event log and does not end the loop: the next file may be sound.
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
        WaitRegKeyChange(kLocalMachine, kProductKey);  // any value that is written under the key ends the wait
        if (IsReloadNeeded()) {
            LogMessage("[ReloadSettingFIleServiceTimerThread] Need Reload Setting FIle");
            Reload();
            SettleReload();
        }
    }
}

void ReceiveWmiEvents() {
    LogMessage("[ZorvalisService] Create WMIServiceTimerThread.");
    const ZorvalisService service(kServiceName, true, true, false);  // Kept: registers the event provider once more
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
