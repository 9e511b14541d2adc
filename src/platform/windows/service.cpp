// The service by the dispatcher of Windows.
#include "platform/service.h"

#include <windows.h>

#include <cstddef>

#include "platform/windows/guid.h"

namespace platform {
namespace {

static_assert(offsetof(PowerSettingChange, setting) == offsetof(POWERBROADCAST_SETTING, PowerSetting) &&
              offsetof(PowerSettingChange, size) == offsetof(POWERBROADCAST_SETTING, DataLength) &&
              offsetof(PowerSettingChange, data) == offsetof(POWERBROADCAST_SETTING, Data));

constexpr DWORD kMainMilliseconds = 10000;  // for a ServiceMain that still runs after the stop

// A process has one service. Each is set before Windows can call it.
ServiceMain service_main = nullptr;
ServiceHandler service_handler = nullptr;
HANDLE main_ended = nullptr;

void WINAPI call_main(DWORD argc, wchar_t** argv) {
    service_main(argc, argv);
    ::SetEvent(main_ended);
}

DWORD WINAPI call_handler(DWORD control, DWORD event_type, void* event_data, void* context) {
    return service_handler(control, event_type, event_data, context);
}

SERVICE_STATUS_HANDLE to_system(ServiceStatusHandle handle) {
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(handle);
}

}  // namespace

bool run_service(const wchar_t* name, ServiceMain main) {
    service_main = main;
    const SERVICE_TABLE_ENTRYW services[] = {{const_cast<wchar_t*>(name), call_main}, {nullptr, nullptr}};
    main_ended = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (::StartServiceCtrlDispatcherW(services) == FALSE) {
        return false;
    }
    // A service may report that it is stopped while its ServiceMain still runs. ServiceMain uses objects that the
    // caller destroys after this returns, so a ServiceMain that hangs ends the process; the manager knows of the stop
    // already.
    if (::WaitForSingleObject(main_ended, kMainMilliseconds) == WAIT_TIMEOUT) {
        ::TerminateProcess(::GetCurrentProcess(), 0);
    }
    return true;
}

ServiceStatusHandle register_service_handler(const wchar_t* name, ServiceHandler handler, void* context) {
    service_handler = handler;
    return reinterpret_cast<ServiceStatusHandle>(::RegisterServiceCtrlHandlerExW(name, call_handler, context));
}

bool set_service_status(ServiceStatusHandle handle, const ServiceStatus& status) {
    SERVICE_STATUS reported = {
        status.type,       status.state,    status.accepted, status.exit_code, status.specific_exit_code,
        status.checkpoint, status.wait_hint};
    return ::SetServiceStatus(to_system(handle), &reported) != FALSE;
}

std::intptr_t register_power_setting(ServiceStatusHandle handle, const Guid& setting) {
    const GUID guid = to_system(setting);
    return reinterpret_cast<std::intptr_t>(
        ::RegisterPowerSettingNotification(to_system(handle), &guid, DEVICE_NOTIFY_SERVICE_HANDLE));
}

bool unregister_power_setting(std::intptr_t registration) {
    return ::UnregisterPowerSettingNotification(reinterpret_cast<HPOWERNOTIFY>(registration)) != FALSE;
}

}  // namespace platform
