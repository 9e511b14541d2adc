// The calling thread's last error: GetLastError on Windows; on the stand-in machine a number that the failed call of
// this floor has left, translated to that of Windows. It tells why a call has just failed and nothing after a success.
#pragma once

#include <cstdint>

namespace platform {

std::uint32_t last_error();
void set_last_error(std::uint32_t error);

}  // namespace platform
