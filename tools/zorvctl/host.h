// What the tool asks of Windows or Linux and the platform floor does not offer, since the service needs none of it: the
// entry, the terminal, the user's name, interruption.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zorvalis {

// Defined by the tool. The side's own main prepares the output and calls this with the arguments in UTF-8.
int RunTool(std::vector<std::string> arguments);

// The terminal's width in columns (80 when it does not tell); 0 when the output is a file or a pipe.
int TerminalWidth();

// The account that runs the tool.
std::string UserName();

// Makes `folder` the stand-in machine of this process and of those it starts, by ZORV_MACHINE. Does nothing on Windows.
void UseMachine(const char* folder);

// Whether the caller may see all of the machine: an administrator, or the owner of the stand-in machine's folder.
bool HasAllRights();

// What of a stand-in machine its other readers may not see, so that it would seem to be missing; empty when that is
// nothing, for the machine's owner, and on Windows.
std::string HiddenPart();

// Whether files may be made in that folder, which exists; nothing when this caller cannot tell. Makes none.
std::optional<bool> MayWriteIn(const std::string& folder);

// Whether the service listens for clients; opens no context there. False too when it does not within a second.
bool EndpointListens();

// Whether anybody starts the machine's scheduled tasks: the Windows service, or `zorvctl tasks run`.
bool TasksAreStarted();

// From this call on, Ctrl-C, SIGTERM and a closed terminal do not end the process but make `Interrupted` true. Only for
// commands that work on a stand-in machine: nothing on Windows.
void CatchInterruption();
bool Interrupted();

}  // namespace zorvalis
