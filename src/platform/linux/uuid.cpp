// Random UUIDs from the kernel's generator, printed as Windows does.
#include "platform/uuid.h"

#include <sys/random.h>

#include "platform/stand_in/descriptor.h"

namespace platform {

Uuid create_uuid() {
    Uuid uuid{};
    retry([&uuid] { return ::getrandom(uuid.data(), uuid.size(), 0); });
    // Version 4. It belongs into the high byte of the third field, which is the second one in little-endian order.
    uuid[7] = static_cast<std::uint8_t>((uuid[7] & 0x0F) | 0x40);
    uuid[8] = static_cast<std::uint8_t>((uuid[8] & 0x3F) | 0x80);
    return uuid;
}

std::wstring uuid_to_text(const Uuid& uuid) {
    constexpr int kOrder[] = {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15};
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    std::wstring text;
    for (const int index : kOrder) {
        if (index < 0) {
            text += L'-';
        } else {
            text += kDigits[uuid[index] >> 4];
            text += kDigits[uuid[index] & 0x0F];
        }
    }
    return text;
}

}  // namespace platform
