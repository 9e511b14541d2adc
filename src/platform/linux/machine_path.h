// Where things lie in the machine's folder. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// The path of something in the machine's folder, with forward slashes.
std::string machine_path(std::string_view name);

// Makes the folder with all its parents; true when it is there afterwards, else errno tells why not.
bool make_folders(const std::string& folder);

}  // namespace platform
