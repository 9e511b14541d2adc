// Plain conversions of text, none of which says anything about itself.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace zorvalis {

// An empty text for a failed conversion.
std::string WideToUtf8(const std::wstring& text);

// Character by character, with no code page: right for plain ASCII, and never a failure.
std::wstring WidenBytes(const std::string& text);
std::string NarrowBytes(const std::wstring& text);

// The fields between separators. Empty ones inside count, an empty one behind a final separator does not.
template <class Char>
std::vector<std::basic_string<Char>> SplitString(const std::basic_string<Char>& text, Char separator) {
    std::vector<std::basic_string<Char>> fields;
    std::basic_istringstream<Char> stream(text);
    std::basic_string<Char> field;
    while (std::getline(stream, field, separator)) {
        fields.push_back(field);
    }
    return fields;
}

}  // namespace zorvalis
