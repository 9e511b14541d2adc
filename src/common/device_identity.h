// What names this machine. Each identifier leaves a copy in the registry, which is a fallback or a cache, never the
// master. None of these reports failure; each opens and closes its own session with the hardware library.
#pragma once

#include <string>

namespace zorvalis {

// The UUID that this service owns and keeps in non-volatile storage, as lower-case text.
std::string getDeviceUUID();

// The firmware's serial number without its blanks.
std::string getSerialNumber();

}  // namespace zorvalis
