// From a function's name in the catalogue to its value as text. Kept: each call loads the hardware library and unloads
// it again, also for a value that does not come from it. A name that is unknown, or that only the other dispatcher
// serves, gives an empty text. Values are not checked: a number that cannot be read is 0, and a failure that the
// library itself returns, 4294967295 say, looks like a reading.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// The reads that take a flag byte, which goes to the library as it is.
std::string DispatchWmi(const std::string& name, std::uint8_t wmiFlag);

// The reads without one.
std::string DispatchDirect(const std::string& name);

}  // namespace zorvalis
