// The machine's power settings: their present state in power.json, and which GUID stands for which.
#pragma once

#include <array>
#include <cstdint>
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

inline constexpr char kPowerFile[] = "power.json";

// 36 characters in any case, without braces.
std::optional<Guid> parse_guid(std::string_view text);

// Nothing for a setting that the file does not name.
std::optional<std::uint32_t> present_power_state(const Guid& setting);

}  // namespace platform
