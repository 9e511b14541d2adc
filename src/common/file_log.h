// A log in a file. Kept: nothing in the product calls it; a build that wants such a log adds the calls.
#pragma once

#include <string>

namespace zorvalis {

// Makes the log's folder with its parents.
void CreateDebugLogFolder();

// Appends one line with the local time. The file grows without a limit; a failure is silent.
void WriteTestLog(std::string text);

}  // namespace zorvalis
