// The calling thread's last system error, in the numbers of Windows on both sides.
#pragma once

#include <cstdint>

namespace platform {

std::uint32_t last_error();
void set_last_error(std::uint32_t error);

}  // namespace platform
