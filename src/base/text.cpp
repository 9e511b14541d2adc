#include "base/text.h"

namespace zorvalis {

std::wstring WidenBytes(std::string_view text) {
    std::wstring wide;
    wide.reserve(text.size());
    for (const char c : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    return wide;
}

std::string NarrowBytes(std::wstring_view text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (const wchar_t c : text) {
        narrow += static_cast<char>(c);
    }
    return narrow;
}

std::string Hexadecimal(std::span<const std::uint8_t> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

}  // namespace zorvalis
