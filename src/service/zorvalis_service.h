// The service's own behaviour: what runs at its start, the work that it puts off for two minutes, what a power event
// leads to, and what is recorded when the machine shuts down. It holds almost no state: what must outlive the process
// is in the registry, and JobManager does all work.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/thread_pool.h"
#include "service/service_base.h"

namespace zorvalis {

inline constexpr std::uint32_t kWorkDelay = 120000;  // milliseconds from the start or a resume to the work put off

class ZorvalisService : public CServiceBase {
public:
    using CServiceBase::CServiceBase;

    void OnStart(std::uint32_t argc, wchar_t** argv) override;
    void OnStop() override;
    void OnShutdown() override;
    void OnPowerEvent(std::uint32_t eventType, void* eventData) override;
    void OnSessionChange() override;

    // Starts a timer that fires once, two minutes later: 0 makes the scheduled task, 1 begins to receive hardware
    // events. A timer that cannot be made is left out without a word.
    void SetTimerThread(int which);

private:
    // The rest runs on threads of the pool (deferred_work.cpp).

    // Serves clients for as long as the endpoint listens. An endpoint that cannot be opened stops the service.
    static void RpcServiceWork(void*);

    static void TaskSchedulerCreatorTimer(void*);

    // Receives hardware events; keeps its thread until the receiver gives up.
    static void WmiReceiverTimer(void*);

    // Never returns: reloads the setting file whenever NEEDRELOAD_SETTING_FILE in the registry asks for it.
    static void ReloadSettingFileTimer(void*);

    // Kept: timers are never cancelled or closed, and each resume overwrites taskSchedulerTimer with a new one.
    std::atomic<platform::PoolTimer*> taskSchedulerTimer{nullptr};
    std::atomic<platform::PoolTimer*> wmiReceiverTimer{nullptr};
    std::atomic<platform::PoolTimer*> reloadSettingTimer{nullptr};
};

}  // namespace zorvalis
