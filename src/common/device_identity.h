// What names this machine. Each read leaves a copy in the registry, as a fallback or a cache; the hardware's value is
// the one that counts. No failure is reported. Each call loads the hardware library for itself; any thread.
#pragma once

#include <string>

namespace zorvalis {

// The UUID that the service made for this machine, as lower-case text with dashes. It is kept in the machine's
// non-volatile storage and is made at the first call. While the storage fails, the registry's copy stands in.
std::string getDeviceUUID();

// The firmware's serial number without its blanks; empty when it cannot be read.
std::string getSerialNumber();

}  // namespace zorvalis
