// The sockets in the machine's run folder, by their names in the machine's folder ("run/events"). Any thread.
#pragma once

#include <string>

#include "platform/stand_in/descriptor.h"

namespace platform {

// Listens there, without ever blocking. What a process left there that has ended is replaced. `mode` is that of the
// file, 0 for what the process' mask leaves. Invalid, with errno, when that fails; EADDRINUSE when another listens.
Descriptor listen_at(const std::string& name, unsigned mode);

// Connects to who listens there; sends and receipts then block for at most `seconds`, 0 for no limit. Invalid, with
// errno, when nobody does.
Descriptor connect_to(const std::string& name, int seconds);

}  // namespace platform
