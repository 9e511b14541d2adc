// Conversions between UTF-8, of the floor's headers and the machine's files, and wide text (UTF-32).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Nothing when the bytes are not valid UTF-8.
std::optional<std::wstring> to_wide(std::string_view text);

// A wide character that Unicode does not have becomes U+FFFD.
std::string to_utf8(std::wstring_view text);

}  // namespace platform
