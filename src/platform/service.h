// What a service does with the service manager of Windows, which the stand-in machine replaces by a socket and files:
// run its dispatcher, handle controls, report statuses, hear of power settings. A process has one service. A call that
// returns false or 0 leaves a Windows error number in `last_error`.
#pragma once

#include <cstdint>

#include "platform/guid.h"

namespace platform {

// The fields of Windows' SERVICE_STATUS, in its order.
struct ServiceStatus {
    std::uint32_t type;
    std::uint32_t state;
    std::uint32_t accepted;  // mask of the controls that the service takes
    std::uint32_t exit_code;
    std::uint32_t specific_exit_code;
    std::uint32_t checkpoint;
    std::uint32_t wait_hint;  // milliseconds
};

using ServiceStatusHandle = std::intptr_t;  // 0 for none

// Called once, on a thread of its own. It must not throw.
using ServiceMain = void (*)(std::uint32_t argc, wchar_t** argv);

// Called on the thread of `run_service`, one control at a time; its result goes to the sender of the control. It must
// not throw.
using ServiceHandler = std::uint32_t (*)(std::uint32_t control, std::uint32_t event_type, void* event_data,
                                         void* context);

// The event data of control 13 (power event) with event type 0x8013 (power setting change), as Windows lays it out.
struct PowerSettingChange {
    Guid setting;
    std::uint32_t size;  // of the data in bytes
    std::uint32_t data;
};

// Blocks until the service has reported that it is stopped. When its ServiceMain does not return within some seconds
// after that, the process is ended here. False at once, with error 1063, when nobody started the process as a service.
bool run_service(const wchar_t* name, ServiceMain main);

// To be called in ServiceMain. 0 on failure.
ServiceStatusHandle register_service_handler(const wchar_t* name, ServiceHandler handler, void* context);

// Any thread.
bool set_service_status(ServiceStatusHandle handle, const ServiceStatus& status);

// The handler gets the setting's present state at once, as if it had changed. 0 on failure.
std::intptr_t register_power_setting(ServiceStatusHandle handle, const Guid& setting);
bool unregister_power_setting(std::intptr_t registration);

}  // namespace platform
