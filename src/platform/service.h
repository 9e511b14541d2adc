// The service protocol, from the side of the service: the dispatcher that the service manager drives, the handler of
// controls, reported statuses, power settings. A process has one service. A failed call leaves its cause in
// `last_error`.
#pragma once

#include <cstdint>

#include "platform/guid.h"

namespace platform {

// In the system's order.
struct ServiceStatus {
    std::uint32_t type;
    std::uint32_t state;
    std::uint32_t accepted;  // controls
    std::uint32_t exit_code;
    std::uint32_t specific_exit_code;
    std::uint32_t checkpoint;
    std::uint32_t wait_hint;
};

using ServiceStatusHandle = std::intptr_t;  // 0 for none

// Called on a thread of its own, once. Nothing may leave it.
using ServiceMain = void (*)(std::uint32_t argc, wchar_t** argv);

// Called on the thread of `run_service`, one control at a time; its result is the answer to the sender. Nothing may
// leave it.
using ServiceHandler = std::uint32_t (*)(std::uint32_t control, std::uint32_t event_type, void* event_data,
                                         void* context);

// The event data of control 13 with event type 0x8013, in the system's layout.
struct PowerSettingChange {
    Guid setting;
    std::uint32_t size;  // of the data in bytes
    std::uint32_t data;
};

// Blocks until the service has reported that it is stopped; when its ServiceMain does not end soon after that, the
// process does. False at once, with error 1063, when the process was not started as a service.
bool run_service(const wchar_t* name, ServiceMain main);

// From ServiceMain. 0 on failure.
ServiceStatusHandle register_service_handler(const wchar_t* name, ServiceHandler handler, void* context);

bool set_service_status(ServiceStatusHandle handle, const ServiceStatus& status);

// The setting's present state comes to the handler at once, as a change. 0 on failure.
std::intptr_t register_power_setting(ServiceStatusHandle handle, const Guid& setting);
bool unregister_power_setting(std::intptr_t registration);

}  // namespace platform
