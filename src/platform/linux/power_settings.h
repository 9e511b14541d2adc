// The states of the machine's power settings, as power.json keeps them. Any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/guid.h"

namespace platform {

// Nothing for a setting that the file does not name.
std::optional<std::uint32_t> present_power_state(const Guid& setting);

}  // namespace platform
