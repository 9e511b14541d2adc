// Conversions between UTF-8, the machine's ANSI code page and wide text, up to the first NUL. A conversion that fails
// gives an empty text and a trace line.
#pragma once

#include <memory>
#include <string>

namespace zorvalis {

std::wstring Utf82Unicode(const std::string& text);
std::string WideByte2Ansi(const std::wstring& text);
std::string Utf8ToAnsi(const std::string& text);

// From the ANSI code page. A failure gives an empty text and no trace line.
std::unique_ptr<wchar_t[]> AnsiToWideBuffer(const char* text);

}  // namespace zorvalis
