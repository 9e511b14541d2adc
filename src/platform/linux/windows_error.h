// errno in the numbers of Windows, which the core compares and prints.
#pragma once

#include <cstdint>

namespace platform {

std::uint32_t windows_error(int error);

}  // namespace platform
