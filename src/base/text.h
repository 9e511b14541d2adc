// Plain conversions of text that need no code page and cannot fail.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zorvalis {

// Character by character: right for plain ASCII. Narrowing keeps the lowest byte of each character.
std::wstring WidenBytes(std::string_view text);
std::string NarrowBytes(std::wstring_view text);

// Two digits for each byte, in lower case.
std::string Hexadecimal(std::span<const std::uint8_t> bytes);

// The fields between separators. Empty ones inside count, an empty one behind a final separator does not.
template <class Char>
std::vector<std::basic_string<Char>> SplitString(const std::basic_string<Char>& text, Char separator) {
    std::vector<std::basic_string<Char>> fields;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        fields.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return fields;
}

}  // namespace zorvalis
