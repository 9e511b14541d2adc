// What a line of run/control asks for, and which controls a service takes: pure functions of plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/service.h"
#include "platform/service_manager.h"
#include "platform/stand_in/service_control.h"

namespace platform {

// Errors, beside those of service_manager.h.
constexpr std::uint32_t kInvalidHandle = 6;
constexpr std::uint32_t kNotEnoughMemory = 8;
constexpr std::uint32_t kInvalidData = 13;
constexpr std::uint32_t kGenFailure = 31;
constexpr std::uint32_t kInvalidParameter = 87;
constexpr std::uint32_t kInvalidName = 123;
constexpr std::uint32_t kServiceAlreadyRunning = 1056;
constexpr std::uint32_t kNotStartedAsService = 1063;
constexpr std::uint32_t kServiceMarkedForDelete = 1072;
constexpr std::uint32_t kServiceExists = 1073;
constexpr std::uint32_t kServiceNotInProcess = 1083;

constexpr std::uint32_t kOwnProcess = 0x10;
constexpr std::uint32_t kControlStop = 1;
constexpr std::uint32_t kControlInterrogate = 4;

struct ServiceControl {
    bool asks_for_status = false;
    std::uint32_t control = 0;
    std::uint32_t event_type = 0;
    std::optional<PowerSettingChange> change;
};

// Nothing, and a sentence in `problem`, for a line that asks for nothing sensible.
std::optional<ServiceControl> parse_service_control(const std::string& line, std::string& problem);

// Controls that a program may send through the service manager; the others come from Windows alone.
bool is_manager_control(std::uint32_t control);

// 0 when a service of that status takes the control, else why not.
std::uint32_t refusal(std::uint32_t control, const ServiceStatus& status);

}  // namespace platform
