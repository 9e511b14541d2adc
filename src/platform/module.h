// The path of the running executable. Any thread.
#pragma once

#include <string>

namespace platform {

// Fills at most `capacity` characters, the terminator included, and returns the length without it; 0 on failure.
int module_file_name(wchar_t* buffer, int capacity);

// For tests and tools, whose names and folders differ from the installed executable's: module_file_name answers `path`
// from now on, and the stand-in machine looks for libraries beside it. An empty text undoes that.
void set_module_path(const std::wstring& path);

}  // namespace platform
