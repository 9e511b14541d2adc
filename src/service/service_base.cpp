#include "service/service_base.h"

#include <array>
#include <cassert>
#include <cstdio>
#include <cwchar>
#include <mutex>

#include "common/root.h"
#include "platform/error.h"
#include "platform/event_provider.h"
#include "service/power_settings.h"

namespace zorvalis {
namespace {

constexpr platform::Guid kEventProvider = {
    0xBE2E880E, 0xF79F, 0x4C30, {0x9C, 0x95, 0x09, 0xF0, 0x03, 0xA0, 0xA7, 0xEA}};

constexpr std::uint8_t kErrorLevel = 2;

std::mutex servedMutex;
bool isServed = false;  // the service manager's dispatcher runs; under servedMutex

// Held while a report is made, so that the service manager gets reports in the order in which the state changed: two
// threads that change it at once could otherwise both report what the later one left there, and a stop would be lost.
std::mutex statusMutex;

constexpr std::uint32_t kAcceptStop = 1;
constexpr std::uint32_t kAcceptPauseContinue = 2;
constexpr std::uint32_t kAcceptPowerAndSession = 0xC0;
constexpr std::uint32_t kAcceptPreshutdown = 0x100;  // instead of shutdown, which comes too late to write a row

}  // namespace

std::atomic<CServiceBase*> CServiceBase::s_service{nullptr};
std::uint32_t CServiceBase::checkPoint = 1;
std::atomic<platform::ServiceStatusHandle> CServiceBase::s_statusHandle{0};

CServiceBase::CServiceBase(const wchar_t* serviceName, bool canStop, bool canShutdown, bool canPauseContinue)
    : name(serviceName != nullptr ? serviceName : L""),
      status{kOwnProcess,
             kStartPending,
             kAcceptPowerAndSession | (canStop ? kAcceptStop : 0) | (canShutdown ? kAcceptPreshutdown : 0) |
                 (canPauseContinue ? kAcceptPauseContinue : 0),
             0,
             0,
             0,
             0},
      keptState(kStartPending) {
    const std::uint32_t error = platform::register_event_provider(kEventProvider, eventProvider);
    if (error != 0) {
        std::printf("Provider not registered. EventRegister failed with %d\n", static_cast<int>(error));
    }
}

CServiceBase::~CServiceBase() {
    if (eventProvider != 0) {
        platform::unregister_event_provider(eventProvider);
    }
    const platform::ServiceStatusHandle handle = s_statusHandle;
    if (s_service != nullptr && handle != 0) {
        // Kept: every instance does this, the one in ReceiveWmiEvents too, and with the status handle. It is not the
        // handle of any registration, so nothing is unregistered.
        platform::unregister_power_setting(handle);
    }
    CServiceBase* self = this;
    s_service.compare_exchange_strong(self, nullptr);
}

void CServiceBase::OnStart(std::uint32_t, wchar_t**) {}
void CServiceBase::OnStop() {}
void CServiceBase::OnPause() {}
void CServiceBase::OnContinue() {}
void CServiceBase::OnShutdown() {}
void CServiceBase::OnPowerEvent(std::uint32_t, void*) {}
void CServiceBase::OnSessionChange() {}

void CServiceBase::WriteEventLogEntry(const wchar_t* message, std::uint8_t level) {
    if (eventProvider != 0) {
        platform::write_event_text(eventProvider, level, 0, message);
    }
}

void CServiceBase::WriteErrorLogEntry(const wchar_t* function, std::uint32_t error) {
    std::array<wchar_t, 260> message{};
    std::swprintf(message.data(), message.size(), L"%ls failed w/err 0x%08lx", function,
                  static_cast<unsigned long>(error));
    WriteEventLogEntry(message.data(), kErrorLevel);
}

bool CServiceBase::Run(CServiceBase& service) {
    s_service = &service;
    const auto serve = [](bool begins) {
        const std::lock_guard guard(servedMutex);
        isServed = begins;
    };
    serve(true);
    const bool result = platform::run_service(service.name, [](std::uint32_t argc, wchar_t** argv) {
        // ServiceMain throws when it cannot register its handler. The service manager then never hears of the service.
        AtRoot("ServiceMain", [&] { ServiceMain(argc, argv); });
    });
    serve(false);  // waits for a StopServed that runs: the caller destroys the service next
    return result;
}

void CServiceBase::ServiceMain(std::uint32_t argc, wchar_t** argv) {
    assert(s_service != NULL);
    CServiceBase& service = *s_service;
    const platform::ServiceStatusHandle handle = platform::register_service_handler(
        service.name,
        [](std::uint32_t control, std::uint32_t eventType, void* eventData, void* context) {
            std::uint32_t result = 0;
            AtRoot("HandleControl", [&] { result = HandleControl(control, eventType, eventData, context); });
            return result;
        },
        nullptr);
    service.statusHandle = s_statusHandle = handle;
    if (handle == 0) {
        throw ServiceError{platform::last_error()};
    }
    service.Start(argc, argv);
    // Kept: also after a failed start. `service` may then be destroyed already, so only `handle` is used. The handles
    // of the registrations are dropped: they last as long as the process.
    for (const platform::Guid& setting :
         {GUID_LIDSWITCH_STATE_CHANGE, GUID_ACDC_POWER_SOURCE, GUID_CONSOLE_DISPLAY_STATE}) {
        platform::register_power_setting(handle, setting);
    }
}

std::uint32_t CServiceBase::HandleControl(std::uint32_t control, std::uint32_t eventType, void* eventData, void*) {
    CServiceBase& service = *s_service;
    switch (control) {
        case SERVICE_CONTROL_STOP:
            service.Stop();
            break;
        case SERVICE_CONTROL_PAUSE:
            service.Pause();
            break;
        case SERVICE_CONTROL_CONTINUE:
            service.Continue();
            break;
        case SERVICE_CONTROL_POWEREVENT:
            service.PowerEvent(eventType, eventData);
            break;
        case SERVICE_CONTROL_SESSIONCHANGE:
            service.OnSessionChange();
            break;
        case SERVICE_CONTROL_PRESHUTDOWN:
            service.Shutdown();
            break;
        default:
            break;  // also interrogate and plain shutdown: answered with 0, and no status is reported
    }
    return 0;
}

void CServiceBase::SetServiceStatus(std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint) {
    const std::lock_guard guard(statusMutex);
    const bool stops = state == kStopPending || state == kStopped;
    if (!stops) {
        keptState = state;
    }
    // A start may end while StopServed stops the service: the service manager must not be told that it runs.
    if (stops || status.state != kStopPending) {
        Report(state, exitCode, waitHint);
    }
}

void CServiceBase::ResumeAfterStop() {
    const std::lock_guard guard(statusMutex);
    Report(keptState, 0, 0);
}

void CServiceBase::Report(std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint) {
    if (status.state == kStopped) {
        return;  // the service manager has closed the handle
    }
    status.state = state;
    status.exit_code = exitCode;
    status.wait_hint = waitHint;
    status.checkpoint = state == kRunning || state == kStopped ? 0 : checkPoint++;
    platform::set_service_status(statusHandle, status);
}

// Runs `call` and logs what it throws. `fallback` then gets the Windows error number, 0 for anything else.
template <class Call, class Fallback>
void CServiceBase::Guarded(const wchar_t* function, const wchar_t* failure, Call call, Fallback fallback) {
    try {
        call();
    } catch (ServiceError error) {
        WriteErrorLogEntry(function, error);
        fallback(error);
    } catch (...) {
        WriteEventLogEntry(failure, kErrorLevel);
        fallback(0);
    }
}

void CServiceBase::Start(std::uint32_t argc, wchar_t** argv) {
    Guarded(
        L"Service Start", L"Service failed to start.",
        [&] {
            WriteEventLogEntry(L"Service trying to start.", kErrorLevel);
            SetServiceStatus(kStartPending);
            OnStart(argc, argv);
            SetServiceStatus(kRunning);
        },
        [&](std::uint32_t error) { SetServiceStatus(kStopped, error); });
}

void CServiceBase::Stop() {
    Guarded(
        L"Service Stop", L"Service failed to stop.",
        [&] {
            SetServiceStatus(kStopPending);
            OnStop();
            SetServiceStatus(kStopped);
        },
        [&](std::uint32_t) { ResumeAfterStop(); });
}

void CServiceBase::StopServed() {
    const std::lock_guard guard(servedMutex);
    if (isServed) {
        s_service.load()->Stop();
    }
}

void CServiceBase::Pause() {
    Guarded(
        L"Service Pause", L"Service failed to pause.",
        [&] {
            SetServiceStatus(kPausePending);
            OnPause();
            SetServiceStatus(kPaused);
        },
        [&](std::uint32_t) { SetServiceStatus(kRunning); });
}

void CServiceBase::Continue() {
    Guarded(
        L"Service Continue", L"Service failed to resume.",
        [&] {
            SetServiceStatus(kContinuePending);
            OnContinue();
            SetServiceStatus(kRunning);
        },
        [&](std::uint32_t) { SetServiceStatus(kPaused); });
}

void CServiceBase::Shutdown() {
    Guarded(
        L"Service Shutdown", L"Service failed to shut down.",
        [&] {
            OnShutdown();
            SetServiceStatus(kStopped);  // Kept: without a pending report before it, and a failed one reports nothing
        },
        [](std::uint32_t) {});
}

void CServiceBase::PowerEvent(std::uint32_t eventType, void* eventData) {
    Guarded(
        L"Service PowerEvent", L"Service failed to get power event.", [&] { OnPowerEvent(eventType, eventData); },
        [](std::uint32_t) {});
}

}  // namespace zorvalis
