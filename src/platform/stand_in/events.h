// How power settings and firmware events reach a stand-in machine: power.json keeps the state of each setting, and
// firmware events are lines sent to a socket. docs/stand-in-machine.md describes both.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "platform/guid.h"

namespace platform {

struct PowerSettingName {
    const char* name;  // in power.json
    const char* guid;
};

inline constexpr std::array<PowerSettingName, 3> kPowerSettings = {{
    {"lid", "ba3e0f4d-b817-4094-a2d1-d56379e6a0f3"},
    {"ac", "5d3e9a59-e9d5-4b00-a6bd-ff34ff516548"},
    {"display", "6fe69556-704a-47a0-8f24-c28d936fda47"},
}};

// Reads a GUID of 36 characters, in any case and without braces.
std::optional<Guid> parse_guid(std::string_view text);

inline constexpr char kPowerFile[] = "power.json";
inline constexpr char kEventSocket[] = "run/events";

}  // namespace platform
