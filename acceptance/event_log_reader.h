// The product's entries in the event log of Windows, as Event Viewer shows them.
#pragma once

#include <string>
#include <vector>

namespace zorvalis::acceptance {

struct LogEntry {
    int level = 0;  // 2 an error, 3 a warning, 4 information
    int number = 0;
    std::string text;           // with the message file's words; empty when Windows finds none, and then
    unsigned long problem = 0;  // says why
};

// The entries whose second text is `text`, the latest first. `error` is a Windows error number when the log cannot be
// asked, else 0.
std::vector<LogEntry> EntriesWith(const std::string& text, unsigned long& error);

}  // namespace zorvalis::acceptance
