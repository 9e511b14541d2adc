// The service manager's protocol, around what a service itself does: reports the status, turns controls into virtual
// calls, and writes starts and failures to an event provider. The service manager's dispatcher calls controls one at a
// time on the thread of `Run`, and the start on another thread; `Stop` may also come from the thread pool. Status
// reports are made one at a time.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/service.h"

namespace zorvalis {

// A Windows error number, thrown as a value by a virtual operation below: it is logged, and a failed start reports it
// as its exit code. Anything else that is thrown counts as an unknown error, 0.
using ServiceError = std::uint32_t;

constexpr std::uint32_t kOwnProcess = 0x10;  // the service type of a process with one service

// The states and controls have Windows' numbers.
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

    // What the service does; all do nothing here. They may throw, see ServiceError.
    virtual void OnStart(std::uint32_t argc, wchar_t** argv);
    virtual void OnStop();
    virtual void OnPause();
    virtual void OnContinue();
    virtual void OnShutdown();
    virtual void OnPowerEvent(std::uint32_t eventType, void* eventData);
    virtual void OnSessionChange();

    // To the event provider, not to the Windows event log. Level 2 is an error.
    virtual void WriteEventLogEntry(const wchar_t* message, std::uint8_t level);

    // Serves the service manager until the service has stopped. False, with the cause in `last_error`, when the service
    // manager did not start the process.
    static bool Run(CServiceBase& service);

    // Stops the service that `Run` serves, if it serves one. For the thread pool.
    static void StopServed();

    // Each calls its virtual operation, with the status reports around it, and does not throw.
    void Start(std::uint32_t argc, wchar_t** argv);
    void Stop();
    void Pause();
    void Continue();
    void Shutdown();
    void PowerEvent(std::uint32_t eventType, void* eventData);

    // Reports a state to the service manager. After kStopped nothing is reported any more. While a stop runs, any other
    // state is only remembered: a stop that fails goes back to it. `waitHint` is in milliseconds.
    void SetServiceStatus(std::uint32_t state, std::uint32_t exitCode = 0, std::uint32_t waitHint = 0);

private:
    static void ServiceMain(std::uint32_t argc, wchar_t** argv);
    static std::uint32_t HandleControl(std::uint32_t control, std::uint32_t eventType, void* eventData, void* context);

    template <class Call, class Fallback>
    void Guarded(const wchar_t* function, const wchar_t* failure, Call call, Fallback fallback);
    void WriteErrorLogEntry(const wchar_t* function, std::uint32_t error);
    void Report(std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint);
    void ResumeAfterStop();

    static std::atomic<CServiceBase*> s_service;                       // the one that `Run` was called on
    static std::uint32_t checkPoint;                                   // under statusMutex
    static std::atomic<platform::ServiceStatusHandle> s_statusHandle;  // of s_service, also after its end

    const wchar_t* name;
    platform::ServiceStatus status;  // under statusMutex
    std::uint32_t keptState;         // to which a stop that fails goes back; under statusMutex
    std::atomic<platform::ServiceStatusHandle> statusHandle{0};
    std::uint64_t eventProvider = 0;
};

}  // namespace zorvalis
