// The service protocol around a service's own behaviour: reports statuses, turns controls into virtual calls, and
// leaves a trail of start and failures with the event provider. Controls come one at a time on the dispatcher's
// thread, the start on another; `Stop` may also come from the thread pool. Reports are made one at a time.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/service.h"

namespace zorvalis {

// What a virtual operation throws for a system's error; anything else that leaves one counts as unknown.
using ServiceError = std::uint32_t;

constexpr std::uint32_t kOwnProcess = 0x10;  // the type of service

enum ServiceState : std::uint32_t {
    kStopped = 1,
    kStartPending = 2,
    kStopPending = 3,
    kRunning = 4,
    kContinuePending = 5,
    kPausePending = 6,
    kPaused = 7,
};

enum ServiceControl : std::uint32_t {
    SERVICE_CONTROL_STOP = 1,
    SERVICE_CONTROL_PAUSE = 2,
    SERVICE_CONTROL_CONTINUE = 3,
    SERVICE_CONTROL_INTERROGATE = 4,
    SERVICE_CONTROL_SHUTDOWN = 5,
    SERVICE_CONTROL_POWEREVENT = 13,
    SERVICE_CONTROL_SESSIONCHANGE = 14,
    SERVICE_CONTROL_PRESHUTDOWN = 15,
};

class CServiceBase {
public:
    CServiceBase(const wchar_t* serviceName, bool canStop, bool canShutdown, bool canPauseContinue);
    CServiceBase(const CServiceBase&) = delete;
    CServiceBase& operator=(const CServiceBase&) = delete;
    virtual ~CServiceBase();
    virtual void OnStart(std::uint32_t argc, wchar_t** argv);
    virtual void OnStop();
    virtual void OnPause();
    virtual void OnContinue();
    virtual void OnShutdown();
    virtual void OnPowerEvent(std::uint32_t eventType, void* eventData);
    virtual void OnSessionChange();
    virtual void WriteEventLogEntry(const wchar_t* message, std::uint8_t level);

    // Serves the service manager until the service has stopped. False, with the system's last error, when the process
    // was not started by it.
    static bool Run(CServiceBase& service);

    // Stops the service that is being served, if there is one. From the thread pool.
    static void StopServed();

    void Start(std::uint32_t argc, wchar_t** argv);
    void Stop();
    void Pause();
    void Continue();
    void Shutdown();
    void PowerEvent(std::uint32_t eventType, void* eventData);

    // Nothing is reported after kStopped. While a stop runs, the state is only kept for a stop that fails.
    void SetServiceStatus(std::uint32_t state, std::uint32_t exitCode = 0, std::uint32_t waitHint = 0);

private:
    static void ServiceMain(std::uint32_t argc, wchar_t** argv);
    static std::uint32_t HandleControl(std::uint32_t control, std::uint32_t eventType, void* eventData, void* context);

    template <class Call, class Fallback>
    void Guarded(const wchar_t* function, const wchar_t* failure, Call call, Fallback fallback);
    void WriteErrorLogEntry(const wchar_t* function, std::uint32_t error);
    void Report(std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint);
    void ResumeAfterStop();

    static std::atomic<CServiceBase*> s_service;
    static std::uint32_t checkPoint;                                   // guarded as `status`
    static std::atomic<platform::ServiceStatusHandle> s_statusHandle;  // of s_service, which may be gone

    const wchar_t* name;
    platform::ServiceStatus status;  // guarded, with what is reported of it
    std::uint32_t keptState;         // which a stop that fails goes back to; guarded too
    std::atomic<platform::ServiceStatusHandle> statusHandle{0};
    std::uint64_t eventProvider = 0;
};

}  // namespace zorvalis
