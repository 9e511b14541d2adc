// UUIDs as 16 bytes in memory order and as text. The text reads the first three fields as little-endian numbers, in
// lower case, on both sides.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace platform {

using Uuid = std::array<std::uint8_t, 16>;

Uuid create_uuid();
std::wstring uuid_to_text(const Uuid& uuid);

}  // namespace platform
