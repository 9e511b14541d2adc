#include "common/file_log.h"

#include <ctime>

#include "common/files.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace zorvalis {

void CreateDebugLogFolder() {
    CreateFolders(
        {"C:\\ProgramData\\", "C:\\ProgramData\\Zorv\\", "C:\\ProgramData\\Zorv\\Zorvcore\\",
         "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\", "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\DebugLog\\"},
        "CreateDebugLogFolder: ");
}

void WriteTestLog(std::string text) {
    std::tm now{};
    platform::local_time(platform::now_seconds(), now);
    CreateDebugLogFolder();
    // Kept: two backslashes in a row, the folder's last character and the name's first.
    const platform::File file = platform::open_file(
        "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\DebugLog\\"
        "\\Testlog.txt",
        "a");
    if (file == nullptr) {
        return;
    }
    std::fprintf(file.get(), "%d-%d-%d %d:%d:%d : %s\n", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour,
                 now.tm_min, now.tm_sec, text.c_str());
}

}  // namespace zorvalis
