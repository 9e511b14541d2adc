// Turns the floor's Guid into the GUID that Windows' calls take.
#pragma once

#include <windows.h>

#include <cstring>

#include "platform/guid.h"

namespace platform {

static_assert(sizeof(Guid) == sizeof(GUID));

inline GUID to_system(const Guid& guid) {
    GUID result;
    std::memcpy(&result, &guid, sizeof result);
    return result;
}

}  // namespace platform
