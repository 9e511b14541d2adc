// From a function's name in the catalogue to its value as text. Each call opens the hardware library anew and closes
// it again. A name that is unknown, or that the other dispatcher serves, gives an empty text.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// The reads that take the WMI flag byte.
std::string DispatchWmi(const std::string& name, std::uint8_t wmiFlag);

// The direct reads.
std::string DispatchDirect(const std::string& name);

}  // namespace zorvalis
