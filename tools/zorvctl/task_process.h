// A task's action as a process of its own, the head of a process group.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zorvalis {

// The words of a command line in the system's way: blanks part them but for inside of quotes, a backslash before a
// quote makes it plain.
std::vector<std::string> SplitArguments(const std::string& line);

// 0, or errno. The process has no input and this one's outputs.
int StartProcess(const std::string& path, const std::string& arguments, pid_t& process);

}  // namespace zorvalis
