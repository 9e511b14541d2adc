// The sockets in the machine's run/ folder, on which its processes listen.
#pragma once

#include <string>

#include "platform/linux/machine_file.h"

namespace platform {

std::string socket_path(const char* name);

// Listens at run/<name>, without ever blocking. What a process left there that has ended is replaced. Invalid, with
// errno, when that fails; EADDRINUSE when another process listens.
Descriptor listen_at(const char* name);

}  // namespace platform
