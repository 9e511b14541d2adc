// The sockets in the machine's run folder, by their names in the machine's folder ("run/events"). Any thread.
#pragma once

#include <string>

#include "platform/stand_in/descriptor.h"

namespace platform {

// Returns a listening socket that never blocks. Replaces the socket file of a process that has ended. `mode` is the
// file's; 0 means what the process' umask leaves. Invalid on failure, with errno: EADDRINUSE when somebody listens.
Descriptor listen_at(const std::string& name, unsigned mode);

// Connects to the process that listens there. Each send and receive then blocks for at most `seconds`; 0 is no limit.
// Invalid, with errno, when nobody listens.
Descriptor connect_to(const std::string& name, int seconds);

}  // namespace platform
