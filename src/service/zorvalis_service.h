// The service's own behaviour: what runs at its start, the work that is put off for two minutes, what a power event
// turns into, and what is recorded when the machine shuts down. It holds almost no state: what outlives a process is
// in the registry, and all work is JobManager's.
#pragma once

#include <atomic>

#include "platform/thread_pool.h"
#include "service/service_base.h"

namespace zorvalis {

class ZorvalisService : public CServiceBase {
public:
    using CServiceBase::CServiceBase;

    void OnStart(std::uint32_t argc, wchar_t** argv) override;
    void OnStop() override;
    void OnShutdown() override;
    void OnPowerEvent(std::uint32_t eventType, void* eventData) override;
    void OnSessionChange() override;

    // 0 for the task scheduler creator, 1 for the WMI receiver.
    void SetTimerThread(int which);

private:
    // Serves clients for as long as the endpoint listens. A failed or ended endpoint takes the service down.
    static void RpcServiceWork(void*);

    static void TaskSchedulerCreatorTimer(void*);

    // Stays in the receiver's loop for as long as that runs.
    static void WmiReceiverTimer(void*);

    // Never returns: it reloads the setting file whenever another process asks for it in the registry.
    static void ReloadSettingFileTimer(void*);

    // None is ever cancelled or closed, and a resume puts a new one in the place of the first.
    std::atomic<platform::PoolTimer*> taskSchedulerTimer{nullptr};
    std::atomic<platform::PoolTimer*> wmiReceiverTimer{nullptr};
    std::atomic<platform::PoolTimer*> reloadSettingTimer{nullptr};
};

}  // namespace zorvalis
