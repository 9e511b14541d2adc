// The whole of a small file at once. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// False, with errno, when the file cannot be read or written to its end. At most 1 MiB is read.
bool read_whole(int descriptor, std::string& text);
bool write_whole(int descriptor, std::string_view text);

}  // namespace platform
