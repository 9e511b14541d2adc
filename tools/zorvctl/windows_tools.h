// The commands of Windows' own tools that serve where zorvctl works on a stand-in machine alone, ready to be run in a
// command prompt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zorvalis {

// The entries of the service, newest first; all for 0.
std::string EventLogCommand(std::size_t last);

// To begin a trace session, and to end it.
std::string TraceCommands(int level, std::uint32_t flags);

// What schtasks does with the task that starts passes: "/query /v /fo LIST" or "/run".
std::string TaskCommand(const std::string& verb);

}  // namespace zorvalis
