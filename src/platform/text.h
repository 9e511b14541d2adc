// Conversions between wide text and code pages. Wide text is UTF-16 on Windows and UTF-32 on the stand-in machine;
// the ANSI code page of the stand-in machine is 1252.
#pragma once

#include <cstdint>

namespace platform {

constexpr std::uint32_t kCodePageAnsi = 0;
constexpr std::uint32_t kCodePageUtf8 = 65001;

constexpr std::uint32_t kNoUnicodeTranslation = 0x459;  // ERROR_NO_UNICODE_TRANSLATION

// Both return the number of characters of the result, its terminator included when `length` is -1 (the text then
// ends at its first null), and only count them when `capacity` is 0. A result of 0 is a failure with its cause in
// `last_error`; success clears `last_error`. Bytes that are no UTF-8 are a failure with kNoUnicodeTranslation; a
// character that the ANSI code page lacks becomes a substitute, "?" where nothing is nearer.
int multi_byte_to_wide(std::uint32_t code_page, const char* text, int length, wchar_t* result, int capacity);
int wide_to_multi_byte(std::uint32_t code_page, const wchar_t* text, int length, char* result, int capacity);

}  // namespace platform
