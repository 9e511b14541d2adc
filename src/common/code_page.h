// Conversions between UTF-8, the ANSI code page and wide text. A failed conversion is an empty text and a log line.
#pragma once

#include <memory>
#include <string>

namespace zorvalis {

std::wstring Utf82Unicode(const std::string& text);
std::string WideByte2Ansi(const std::wstring& text);
std::string Utf8ToAnsi(const std::string& text);

// From the ANSI code page, without a log line. The caller owns the buffer.
std::unique_ptr<wchar_t[]> AnsiToWideBuffer(const char* text);

}  // namespace zorvalis
