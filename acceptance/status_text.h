// A status of COM, WMI or Schannel for the report.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "kit.h"

namespace zorvalis::acceptance {

inline std::string StatusText(std::int32_t status) {
    char number[16] = {};
    std::snprintf(number, sizeof number, "0x%08lX", static_cast<unsigned long>(static_cast<std::uint32_t>(status)));
    return std::string(number) + ", " + ErrorText(static_cast<std::uint32_t>(status));
}

}  // namespace zorvalis::acceptance
