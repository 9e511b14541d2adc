// MD5 digests, Base64 and UUIDs as they appear in requests and answers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zorvalis {

// 32 lower-case hexadecimal digits.
std::string Md5OfText(std::string_view bytes);
bool IsMd5(std::string_view text);

// Strict: nothing unless the text is exactly what an encoder writes, in whole groups, with padding only where needed,
// without line breaks, and with zero bits where the last character has unused ones.
std::optional<std::string> DecodeBase64(std::string_view text);

// A random UUID (version 4) as text, in lower case.
std::string NewUuid();

}  // namespace zorvalis
