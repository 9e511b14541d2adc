// Scaled waits in milliseconds, for the wait functions of Windows.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>

#include "platform/clock.h"

namespace platform {

// Rounded up, and never INFINITE, which would wait without limit.
inline DWORD wait_milliseconds(std::uint32_t milliseconds) {
    const std::int64_t wait = (scaled_wait(milliseconds) + 999) / 1000;
    return static_cast<DWORD>(std::clamp<std::int64_t>(wait, 0, INFINITE - 1));
}

}  // namespace platform
