// From the UTF-8 of the floor's headers to the UTF-16 of Windows' calls, and back. Neither fails: what cannot be
// converted becomes a replacement character, so that a damaged path names no file.
#pragma once

#include <string>
#include <string_view>

namespace platform {

std::wstring to_wide(std::string_view text);
std::string to_utf8(std::wstring_view text);

}  // namespace platform
