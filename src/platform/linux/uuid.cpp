// Random UUIDs from the kernel's generator, printed as Windows does.
#include "platform/uuid.h"

#include <sys/random.h>

#include <algorithm>

#include "base/text.h"
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
    constexpr std::size_t kOrder[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    Uuid bytes;
    std::transform(std::begin(kOrder), std::end(kOrder), bytes.begin(), [&](std::size_t index) { return uuid[index]; });
    std::wstring text = zorvalis::WidenBytes(zorvalis::Hexadecimal(bytes));
    for (const std::size_t at : {8, 13, 18, 23}) {
        text.insert(at, 1, L'-');
    }
    return text;
}

}  // namespace platform
