// Conversions between UTF-8, ANSI and wide text. A failed conversion is an empty text and a log line.
#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace zorvalis {

std::wstring Utf82Unicode(const std::string& text);
std::string WideByte2Ansi(const std::wstring& text);
std::string Utf8ToAnsi(const std::string& text);
std::string WideToUtf8(const std::wstring& text);

// From the ANSI code page; an empty text for a failed conversion. The caller owns the buffer.
std::unique_ptr<wchar_t[]> AnsiToWideBuffer(const char* text);

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
