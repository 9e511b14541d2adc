#include "common/text.h"

#include "platform/text.h"

namespace zorvalis {

std::string WideToUtf8(const std::wstring& text) {
    const int length = static_cast<int>(text.size());
    const int size = platform::wide_to_multi_byte(platform::kCodePageUtf8, text.c_str(), length, nullptr, 0);
    if (size == 0) {
        return "";
    }
    std::string result(size, '\0');
    const int written =
        platform::wide_to_multi_byte(platform::kCodePageUtf8, text.c_str(), length, result.data(), size);
    return written == size ? result : "";
}

std::wstring WidenBytes(const std::string& text) {
    std::wstring wide;
    wide.reserve(text.size());
    for (const char c : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    return wide;
}

std::string NarrowBytes(const std::wstring& text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (const wchar_t c : text) {
        narrow += static_cast<char>(c);
    }
    return narrow;
}

}  // namespace zorvalis
