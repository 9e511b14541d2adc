// From the UTF-8 of the floor's headers to the UTF-16 of Windows' calls, and back.
#pragma once

#include "platform/text.h"

namespace platform {

// What cannot be converted becomes a replacement character, so that a damaged path names no file.
std::wstring to_wide(std::string_view text);

}  // namespace platform
