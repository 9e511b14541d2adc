// UTF-8 as the floor's headers speak it, to and from the wide text of the system's calls. Nothing fails: what is not
// convertible becomes a replacement character, so that a damaged path names no file.
#pragma once

#include <string>
#include <string_view>

namespace platform {

std::wstring to_wide(std::string_view text);
std::string to_utf8(std::wstring_view text);

}  // namespace platform
