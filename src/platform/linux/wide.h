// UTF-8, as the floor's headers and the machine's files have it, to and from wide text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Nothing when the bytes are not valid UTF-8.
std::optional<std::wstring> to_wide(std::string_view text);

// What is no character becomes U+FFFD.
std::string to_utf8(std::wstring_view text);

}  // namespace platform
