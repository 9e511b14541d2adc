// UUIDs as 16 bytes and as text. The text is in lower case and reads the first three fields as little-endian numbers,
// as Windows does, so its digits do not follow the order of the bytes. Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace platform {

using Uuid = std::array<std::uint8_t, 16>;

Uuid create_uuid();
std::wstring uuid_to_text(const Uuid& uuid);

}  // namespace platform
