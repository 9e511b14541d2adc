// Conversions between wide text and code pages, as Windows makes them. Wide text is UTF-16 on Windows and UTF-32 on the
// stand-in machine, whose ANSI code page is 1252. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

constexpr std::uint32_t kCodePageAnsi = 0;
constexpr std::uint32_t kCodePageUtf8 = 65001;

constexpr std::uint32_t kNoUnicodeTranslation = 0x459;  // ERROR_NO_UNICODE_TRANSLATION

// Both return how many characters the result has, and write none when `capacity` is 0. With a `length` of -1 the text
// ends at its first null, which is converted and counted too. 0 is a failure, with its cause in `last_error`; success
// clears `last_error`. Bytes that are not UTF-8 fail with kNoUnicodeTranslation; a character that the ANSI code page
// lacks becomes the nearest one on Windows, else "?".
int multi_byte_to_wide(std::uint32_t code_page, const char* text, int length, wchar_t* result, int capacity);
int wide_to_multi_byte(std::uint32_t code_page, const wchar_t* text, int length, char* result, int capacity);

// What is no character of Unicode becomes U+FFFD.
std::string to_utf8(std::wstring_view text);

}  // namespace platform
