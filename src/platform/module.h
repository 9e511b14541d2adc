// The running executable's own path.
#pragma once

#include <string>

namespace platform {

// Fills at most `capacity` characters, the terminator included, and returns the length without it; 0 on failure.
int module_file_name(wchar_t* buffer, int capacity);

// What module_file_name answers from now on, and where the stand-in machine looks for libraries: for tests and tools,
// whose own names and folders differ from the installed ones. Empty: the truth again.
void set_module_path(const std::wstring& path);

}  // namespace platform
