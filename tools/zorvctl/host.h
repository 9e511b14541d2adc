// The few things that the tool asks of its host and the platform floor has no need of: the entry, the terminal, its
// user, interruption.
#pragma once

#include <string>
#include <vector>

namespace zorvalis {

// Defined by the tool. The side's own main prepares the output and calls this with the arguments in UTF-8.
int RunTool(std::vector<std::string> arguments);

// The terminal's width in columns, 0 when the output is a file or a pipe.
int TerminalWidth();

// The account that runs the tool.
std::string UserName();

// The machine's folder for this process, instead of the one that the environment names.
void UseMachine(const char* folder);

// From the first call on, Ctrl-C and requests to end do not end the process but make `Interrupted` true. Only for
// commands that work on a stand-in machine.
void CatchInterruption();
bool Interrupted();

}  // namespace zorvalis
