#include "common/wide_to_utf8.h"

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

}  // namespace zorvalis
