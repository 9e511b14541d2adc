// A scaled wait in the unit of the system's own waits.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>

#include "platform/clock.h"

namespace platform {

// Rounded up, and never the value that means no limit.
inline DWORD wait_milliseconds(std::uint32_t milliseconds) {
    const std::int64_t wait = (scaled_wait(milliseconds) + 999) / 1000;
    return static_cast<DWORD>(std::clamp<std::int64_t>(wait, 0, INFINITE - 1));
}

}  // namespace platform
