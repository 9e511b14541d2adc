// One character of UTF-8 at a time. Header only and without the C++ runtime, since the hardware library uses it too.
#pragma once

#include <cstddef>
#include <string_view>

namespace zorvalis {

// Stands in a text for bytes that are not a character.
inline constexpr char32_t kReplacementCharacter = 0xFFFD;

// False beyond the last character of Unicode, and for half of a surrogate pair.
constexpr bool IsCharacter(char32_t c) {
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

// Reads the character at the start of `bytes` and returns how many bytes it takes, 1 to 4. Returns 0 and leaves
// `character` alone when `bytes` is empty or begins with a broken, overlong or forbidden sequence.
constexpr std::size_t DecodeUtf8(std::string_view bytes, char32_t& character) {
    const auto lead = static_cast<unsigned char>(bytes.empty() ? 0x80 : bytes.front());
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if ((lead >= 0x80 && lead < 0xC2) || bytes.size() < length) {
        return 0;
    }
    char32_t c = length == 1 ? lead : lead & (0x7FU >> length);
    for (std::size_t at = 1; at < length; ++at) {
        const auto next = static_cast<unsigned char>(bytes[at]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        c = c << 6 | (next & 0x3FU);
    }
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (lead > 0xF4 || c < kLeast[length] || !IsCharacter(c)) {
        return 0;
    }
    character = c;
    return length;
}

// Writes a character to `bytes`, which has room for four, and returns how many bytes it takes. `c` is a character.
constexpr std::size_t EncodeUtf8(char32_t c, char* bytes) {
    if (c < 0x80) {
        bytes[0] = static_cast<char>(c);
        return 1;
    }
    const std::size_t length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    for (std::size_t at = length - 1; at > 0; --at, c >>= 6) {
        bytes[at] = static_cast<char>(0x80 | (c & 0x3F));
    }
    bytes[0] = static_cast<char>(0xF00 >> length | c);
    return length;
}

}  // namespace zorvalis
