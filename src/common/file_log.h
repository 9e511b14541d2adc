// A log in a file, which nothing in the system calls: for a build that wants one.
#pragma once

#include <string>

namespace zorvalis {

void CreateDebugLogFolder();

// Appends one line with the local time, without any limit of size.
void WriteTestLog(std::string text);

}  // namespace zorvalis
