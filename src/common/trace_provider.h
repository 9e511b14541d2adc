// The GUID that a trace session names to hear of this product.
#pragma once

#include "platform/guid.h"

namespace zorvalis {

inline constexpr platform::Guid kTraceProvider = {
    0xeb75ff2f, 0xdde7, 0x4f4d, {0x8e, 0xc3, 0x0e, 0x6a, 0x6f, 0x9c, 0x6b, 0x95}};

}  // namespace zorvalis
