// The few things that the tool asks of its host and the platform floor has no need of: the terminal, a closed pipe,
// its user, interruption.
#pragma once

#include <string>

namespace zorvalis {

// UTF-8, bare line ends and escape sequences on the output; a write to a closed pipe fails instead of ending the
// process.
void PrepareOutput();

// The terminal's width in columns, 0 when the output is a file or a pipe.
int TerminalWidth();

// The account that runs the tool.
std::string UserName();

// The machine's folder for this process, instead of the one that the environment names.
void UseMachine(const char* folder);

// From the first call on, Ctrl-C and requests to end do not end the process but make `Interrupted` true.
void CatchInterruption();
bool Interrupted();

}  // namespace zorvalis
