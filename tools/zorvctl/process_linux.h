// Starts a process as the service manager and the task scheduler of Windows do.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

namespace zorvalis {

// The words of a command line as Windows parts them: at blanks outside of quotes; a backslash before a quote makes the
// quote plain.
std::vector<std::string> SplitArguments(const std::string& line);

// Returns 0, or errno. `words` begins with the executable's path. `group` is POSIX_SPAWN_SETSID or
// POSIX_SPAWN_SETPGROUP, and the process has no input then; with 0 it has this one's. Its output goes to the file
// `log`, or where this one's goes when that is empty. It blocks the signals of `mask` and ignores none.
int StartProcess(std::vector<std::string> words, short group, const sigset_t& mask, const std::string& log,
                 pid_t& process);

}  // namespace zorvalis
