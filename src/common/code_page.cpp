#include "common/code_page.h"

#include <vector>

#include "common/log.h"
#include "platform/error.h"
#include "platform/text.h"

namespace zorvalis {

std::wstring Utf82Unicode(const std::string& text) {
    const int size = platform::multi_byte_to_wide(platform::kCodePageUtf8, text.c_str(), -1, nullptr, 0);
    if (platform::last_error() == platform::kNoUnicodeTranslation) {
        LogMessage("[Utility] Utf82Unicode ERROR_NO_UNICODE_TRANSLATION");
        return L"";
    }
    if (size == 0) {
        LogMessage("[Utility] Utf82Unicode conversion error.");
        return L"";
    }
    std::vector<wchar_t> buffer(size);
    if (platform::multi_byte_to_wide(platform::kCodePageUtf8, text.c_str(), -1, buffer.data(), size) != size) {
        LogMessage("[Utility] Utf82Unicode fail.");
        return L"";
    }
    return buffer.data();
}

std::string WideByte2Ansi(const std::wstring& text) {
    const int size = platform::wide_to_multi_byte(platform::kCodePageAnsi, text.c_str(), -1, nullptr, 0);
    if (platform::last_error() == platform::kNoUnicodeTranslation) {
        LogMessage("[Utility] WideByte2Ansi Invalid ANSI sequence.");
        return "";
    }
    if (size == 0) {
        LogMessage("[Utility] WideByte2Ansi conversion error.");
        return "";
    }
    std::vector<char> buffer(size);
    if (platform::wide_to_multi_byte(platform::kCodePageAnsi, text.c_str(), -1, buffer.data(), size) != size) {
        LogMessage("[Utility] WideByte2Ansi error.");
        return "";
    }
    return buffer.data();
}

std::string Utf8ToAnsi(const std::string& text) {
    return WideByte2Ansi(Utf82Unicode(text));
}

std::unique_ptr<wchar_t[]> AnsiToWideBuffer(const char* text) {
    const int size = platform::multi_byte_to_wide(platform::kCodePageAnsi, text, -1, nullptr, 0);
    auto buffer = std::make_unique<wchar_t[]>(size > 0 ? size : 1);
    platform::multi_byte_to_wide(platform::kCodePageAnsi, text, -1, buffer.get(), size);
    return buffer;
}

}  // namespace zorvalis
