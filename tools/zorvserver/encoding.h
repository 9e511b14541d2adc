// Digests, Base64 and identifiers as they stand in the requests.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zorvalis {

// 32 lower-case hexadecimal digits. The second raises std::runtime_error for a file that cannot be read.
std::string Md5OfText(std::string_view bytes);
std::string Md5OfFile(const std::filesystem::path& path);
bool IsMd5(std::string_view text);

// Nothing unless the text is exactly what an encoder writes: whole groups, padding only where it is needed, no line
// breaks, no stray bits.
std::optional<std::string> DecodeBase64(std::string_view text);

// A random UUID in its usual form.
std::string NewUuid();

}  // namespace zorvalis
