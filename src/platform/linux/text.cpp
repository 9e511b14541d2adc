// UTF-8 and code page 1252 by hand, independent of the host's locale.
#include "platform/text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>

#include "base/utf8.h"
#include "platform/error.h"
#include "platform/linux/wide.h"

namespace platform {
namespace {

constexpr std::uint32_t kInvalidParameter = 87;
constexpr std::uint32_t kInsufficientBuffer = 122;

// Code page 1252 from 0x80 to 0x9F; the five bytes without a character are the control codes of their number.
constexpr std::array<char16_t, 32> kAnsi = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

std::wstring from_ansi(std::string_view text) {
    std::wstring result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        result += byte >= 0x80 && byte < 0xA0 ? static_cast<wchar_t>(kAnsi[byte - 0x80]) : static_cast<wchar_t>(byte);
    }
    return result;
}

std::string to_ansi(std::wstring_view text) {
    std::string result;
    for (const wchar_t wide : text) {
        const auto c = static_cast<char32_t>(wide);
        const auto entry = std::find(kAnsi.begin(), kAnsi.end(), c);
        if (entry != kAnsi.end()) {
            result += static_cast<char>(0x80 + (entry - kAnsi.begin()));
        } else if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) {
            result += static_cast<char>(c);
        } else {
            result += c > 0xFFFF && zorvalis::IsCharacter(c) ? "??" : "?";  // two units on Windows, each replaced
        }
    }
    return result;
}

// Copies the text, or only counts it when `capacity` is 0; fails, with the buffer filled, when it does not fit.
template <class Char>
int deliver(const std::basic_string<Char>& text, Char* result, int capacity) {
    if (capacity > 0) {
        const std::size_t room = std::min(text.size(), static_cast<std::size_t>(capacity));
        text.copy(result, room);
        if (room < text.size()) {
            set_last_error(kInsufficientBuffer);
            return 0;
        }
    }
    set_last_error(0);
    return static_cast<int>(text.size());
}

int fail(std::uint32_t error) {
    set_last_error(error);
    return 0;
}

template <class From, class To>
bool valid(std::uint32_t code_page, const From* text, int length, const To* result, int capacity) {
    const bool known = code_page == kCodePageAnsi || code_page == kCodePageUtf8;
    return known && text != nullptr && length >= -1 && length != 0 && capacity >= 0 &&
           (capacity == 0 || result != nullptr);
}

}  // namespace

std::optional<std::wstring> to_wide(std::string_view text) {
    std::wstring result;
    result.reserve(text.size());
    while (!text.empty()) {
        char32_t c = 0;
        const std::size_t length = zorvalis::DecodeUtf8(text, c);
        if (length == 0) {
            return std::nullopt;
        }
        result += static_cast<wchar_t>(c);
        text.remove_prefix(length);
    }
    return result;
}

std::string to_utf8(std::wstring_view text) {
    std::string result;
    result.reserve(text.size());
    for (const wchar_t wide : text) {
        const auto c = static_cast<char32_t>(wide);
        if (c < 0x80) {  // nearly all: paths and names
            result += static_cast<char>(c);
            continue;
        }
        char bytes[4];
        result.append(bytes,
                      zorvalis::EncodeUtf8(zorvalis::IsCharacter(c) ? c : zorvalis::kReplacementCharacter, bytes));
    }
    return result;
}

int multi_byte_to_wide(std::uint32_t code_page, const char* text, int length, wchar_t* result, int capacity) {
    if (!valid(code_page, text, length, result, capacity)) {
        return fail(kInvalidParameter);
    }
    const std::string_view bytes(text, length < 0 ? std::strlen(text) + 1 : static_cast<std::size_t>(length));
    if (code_page == kCodePageAnsi) {
        return deliver(from_ansi(bytes), result, capacity);
    }
    const auto wide = to_wide(bytes);
    return wide ? deliver(*wide, result, capacity) : fail(kNoUnicodeTranslation);
}

int wide_to_multi_byte(std::uint32_t code_page, const wchar_t* text, int length, char* result, int capacity) {
    if (!valid(code_page, text, length, result, capacity)) {
        return fail(kInvalidParameter);
    }
    const std::wstring_view wide(text, length < 0 ? std::wcslen(text) + 1 : static_cast<std::size_t>(length));
    return deliver(code_page == kCodePageAnsi ? to_ansi(wide) : to_utf8(wide), result, capacity);
}

}  // namespace platform
