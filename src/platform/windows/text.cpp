// By Windows' own conversions; also those of wide.h.
#include "platform/text.h"

#include <windows.h>

#include "platform/windows/wide.h"

namespace platform {

int multi_byte_to_wide(std::uint32_t code_page, const char* text, int length, wchar_t* result, int capacity) {
    ::SetLastError(ERROR_SUCCESS);  // a success would leave the error of an older call
    const DWORD flags = code_page == kCodePageUtf8 ? MB_ERR_INVALID_CHARS : 0;
    return ::MultiByteToWideChar(code_page, flags, text, length, result, capacity);
}

int wide_to_multi_byte(std::uint32_t code_page, const wchar_t* text, int length, char* result, int capacity) {
    ::SetLastError(ERROR_SUCCESS);
    return ::WideCharToMultiByte(code_page, 0, text, length, result, capacity, nullptr, nullptr);
}

std::wstring to_wide(std::string_view text) {
    const auto length = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');  // UTF-16 never has more units than UTF-8 has bytes
    wide.resize(::MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), length));
    return wide;
}

std::string to_utf8(std::wstring_view text) {
    const auto length = static_cast<int>(text.size());
    std::string bytes(text.size() * 3, '\0');
    bytes.resize(wide_to_multi_byte(kCodePageUtf8, text.data(), length, bytes.data(), length * 3));
    return bytes;
}

}  // namespace platform
