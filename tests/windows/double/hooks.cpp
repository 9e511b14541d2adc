// Replaces system functions in the executable that this library is injected into: it writes down what Wine only stubs,
// unwraps controls, and has no patience. Timers of seconds and sleeps of minutes are held until the test says so,
// shorter sleeps are left out.
#include <windows.h>

#include <evntprov.h>
#include <objbase.h>
#include <wmistr.h>

#include <evntrace.h>

#include <cstdarg>
#include <mutex>
#include <string>
#include <vector>

#include "com.h"
#include "control_data.h"
#include "journal.h"
#include "rpc.h"
#include "support/import_hook.h"

namespace doubles {
namespace {

constexpr DWORD kLong = 1000;  // milliseconds from which on nothing is waited for
constexpr DWORD kHeld = 60000;

const HANDLE wake = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);

LPHANDLER_FUNCTION_EX handler = nullptr;
SERVICE_STATUS_HANDLE statusHandle = nullptr;
HANDLE dispatcherThread = nullptr;
std::mutex mutex;
std::vector<PTP_TIMER> heldTimers;

DWORD answer(const std::string& request) {
    if (request.starts_with("indicate\n")) {
        return static_cast<DWORD>(indicate(request.substr(9)));
    }
    if (request == "wake") {
        return ::SetEvent(wake) ? 0 : ::GetLastError();
    }
    const std::size_t number = std::stoul(request.substr(request.find(' ')));
    if (request.starts_with("status")) {
        return static_cast<DWORD>(report_status(static_cast<LONG>(number)));
    }
    const std::lock_guard lock(mutex);
    if (number >= heldTimers.size()) {
        return ERROR_NOT_FOUND;
    }
    FILETIME now = {};
    ::SetThreadpoolTimer(heldTimers[number], &now, 0, 0);
    return 0;
}

DWORD WINAPI handle_control(DWORD control, DWORD type, void* data, void* context) {
    if (dispatcherThread == nullptr) {
        dispatcherThread = ::OpenThread(SYNCHRONIZE, FALSE, ::GetCurrentThreadId());
    }
    auto* const wrapped = static_cast<ControlData*>(data);
    if (wrapped == nullptr || wrapped->mark != ControlData::kMark) {
        return handler(control, type, data, context);
    }
    void* const payload = wrapped->size != 0 ? wrapped + 1 : nullptr;
    if (control == kRequest) {
        return answer(std::string(static_cast<const char*>(payload), wrapped->size));
    }
    return handler(control, wrapped->event_type, payload, context);
}

// Wine comes back as soon as the service has reported its stop, and a program that ends then takes the answer to the
// manager along. Windows comes back after it: here, when the manager has closed its pipe.
BOOL WINAPI run_dispatcher(const SERVICE_TABLE_ENTRYW* services) {
    const BOOL done = ::StartServiceCtrlDispatcherW(services);
    if (dispatcherThread != nullptr) {
        ::WaitForSingleObject(dispatcherThread, INFINITE);
    }
    return done;
}

SERVICE_STATUS_HANDLE WINAPI register_handler(const wchar_t* name, LPHANDLER_FUNCTION_EX function, void* context) {
    handler = function;
    write("RegisterServiceCtrlHandlerExW" + shown(name));
    return statusHandle = ::RegisterServiceCtrlHandlerExW(name, handle_control, context);
}

std::string owner(const void* handle) {
    return handle == statusHandle ? "service" : "other";
}

BOOL WINAPI set_status(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status) {
    const BOOL done = ::SetServiceStatus(handle, status);  // a test that reads the line may ask the manager
    write("SetServiceStatus" + number(status->dwServiceType, " %llx") + number(status->dwCurrentState) +
          number(status->dwControlsAccepted, " %llx") + number(status->dwWin32ExitCode) +
          number(status->dwServiceSpecificExitCode) + number(status->dwCheckPoint) + number(status->dwWaitHint));
    return done;
}

void WINAPI set_timer(PTP_TIMER timer, FILETIME* due, DWORD period, DWORD window) {
    const LONGLONG ticks = static_cast<LONGLONG>(ULONGLONG{due->dwHighDateTime} << 32 | due->dwLowDateTime);
    if (ticks > -10000LL * kLong) {
        ::SetThreadpoolTimer(timer, due, period, window);
        return;
    }
    {
        const std::lock_guard lock(mutex);
        heldTimers.push_back(timer);
    }
    write("SetThreadpoolTimer" + number(ticks) + number(period) + number(window));
}

void WINAPI sleep(DWORD milliseconds) {
    if (milliseconds < kLong) {
        ::Sleep(milliseconds);
        return;
    }
    write("Sleep" + number(milliseconds));
    if (milliseconds >= kHeld) {
        ::WaitForSingleObject(wake, INFINITE);
    }
}

ULONG WINAPI register_trace(WMIDPREQUEST callback, void* context, const GUID*, ULONG, TRACE_GUID_REGISTRATION*,
                            const wchar_t*, const wchar_t*, TRACEHANDLE* registration) {
    ULONG size = 0;
    *registration = 1;
    return callback(WMI_ENABLE_EVENTS, context, &size, &size);
}

ULONG trace_message(TRACEHANDLE, ULONG, const GUID*, USHORT message, ...) {
    va_list arguments;
    va_start(arguments, message);
    write(std::string("trace ") + va_arg(arguments, const char*));
    va_end(arguments);
    return 0;
}

template <class Function>
void replace(const char* name, Function* truth, std::type_identity_t<Function>* replacement) {
    try {
        new ImportHook(name, truth, replacement);  // for the life of the process
    } catch (const std::runtime_error&) {
        // The executable does not call it.
    }
}
#define REPLACE(name, replacement) replace(#name, ::name, replacement)

void replace_service_calls() {
    REPLACE(StartServiceCtrlDispatcherW, run_dispatcher);
    REPLACE(RegisterServiceCtrlHandlerExW, register_handler);
    REPLACE(SetServiceStatus, set_status);
    REPLACE(RegisterPowerSettingNotification, [](HANDLE recipient, const GUID* setting, DWORD flags) -> HPOWERNOTIFY {
        write("RegisterPowerSettingNotification " + owner(recipient) + " " + text(*setting) + number(flags));
        return reinterpret_cast<HPOWERNOTIFY>(1);
    });
    REPLACE(UnregisterPowerSettingNotification, [](HPOWERNOTIFY registration) -> BOOL {
        write("UnregisterPowerSettingNotification " + owner(registration));
        return TRUE;
    });
}

// The installed service does not run, unless a test says so: then it stops at the second look.
void replace_manager() {
    REPLACE(ControlService, [](SC_HANDLE service, DWORD control, SERVICE_STATUS* status) -> BOOL {
        return failure("ControlService") != S_OK ? control == SERVICE_CONTROL_STOP
                                                 : ::ControlService(service, control, status);
    });
    REPLACE(QueryServiceStatus, [](SC_HANDLE, SERVICE_STATUS* status) -> BOOL {
        static int looks = 0;
        *status = {};
        status->dwCurrentState = ++looks < 2 ? SERVICE_STOP_PENDING : SERVICE_STOPPED;
        return TRUE;
    });
}

void replace_records() {
    REPLACE(EventRegister, [](const GUID* provider, PENABLECALLBACK, void*, REGHANDLE* registration) -> ULONG {
        *registration = 1;
        return static_cast<ULONG>(step("EventRegister", " " + text(*provider)));
    });
    REPLACE(EventUnregister, [](REGHANDLE) -> ULONG { return static_cast<ULONG>(step("EventUnregister")); });
    REPLACE(EventWriteString, [](REGHANDLE, UCHAR level, ULONGLONG keyword, const wchar_t* words) -> ULONG {
        write("EventWriteString" + number(level) + number(static_cast<long long>(keyword)) + shown(words));
        return 0;
    });
    REPLACE(ReportEventW,
            [](HANDLE, WORD type, WORD, DWORD, void*, WORD, DWORD, const wchar_t** strings, void*) -> BOOL {
                write("ReportEventW" + number(type) + shown(strings[1]));
                return TRUE;
            });
    REPLACE(RegisterTraceGuidsW, register_trace);
    REPLACE(GetTraceLoggerHandle, [](void*) -> TRACEHANDLE { return 1; });
    REPLACE(GetTraceEnableLevel, [](TRACEHANDLE) -> UCHAR { return 4; });
    REPLACE(GetTraceEnableFlags, [](TRACEHANDLE) -> ULONG { return 1; });
    REPLACE(UnregisterTraceGuids, [](TRACEHANDLE) -> ULONG { return 0; });
    REPLACE(TraceMessage, trace_message);
}

void replace_waits() {
    REPLACE(SetThreadpoolTimer, set_timer);
    REPLACE(Sleep, sleep);
    REPLACE(RegNotifyChangeKeyValue, [](HKEY key, BOOL subtree, DWORD filter, HANDLE changed, BOOL wait) -> LONG {
        const LONG status = ::RegNotifyChangeKeyValue(key, subtree, filter, changed, wait);
        write("RegNotifyChangeKeyValue");  // a change from now on is not missed
        return status;
    });
}

void replace_com() {
    REPLACE(CoInitializeEx, [](void* reserved, DWORD model) -> HRESULT {
        const HRESULT status = step("CoInitializeEx", number(model));
        return status != S_OK ? status : ::CoInitializeEx(reserved, model);
    });
    REPLACE(CoUninitialize, [] {
        write("CoUninitialize" + number(heldObjects));
        ::CoUninitialize();
    });
    REPLACE(CoCreateInstance, create_instance);
}

void replace_rpc() {
    REPLACE(GetProcAddress, find_procedure);
    REPLACE(NdrClientCall2, call_client);
    REPLACE(RpcServerListen, [](unsigned least, unsigned most, unsigned returns) -> RPC_STATUS {
        write("trace RpcServerListen" + number(least) + number(most));  // clients are served from now on
        const HRESULT refused = failure("RpcServerListen");
        return refused != S_OK ? refused : ::RpcServerListen(least, most, returns);
    });
}

}  // namespace
}  // namespace doubles

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        HMODULE pinned = nullptr;
        ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                             reinterpret_cast<const wchar_t*>(library), &pinned);
        doubles::replace_service_calls();
        doubles::replace_manager();
        doubles::replace_records();
        doubles::replace_waits();
        doubles::replace_com();
        doubles::replace_rpc();
    }
    return TRUE;
}
