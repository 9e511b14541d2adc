// MD5 of a file, by the system's own calls, up to the first that fails. Whatever was opened is released. Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace platform {

enum class DigestStep { open, acquire_provider, create_hash, read, add, value };

struct DigestResult {
    DigestStep step = DigestStep::open;  // the last, or the one that failed
    std::uint32_t error = 0;             // its cause, in the numbers of Windows
    std::optional<std::array<std::uint8_t, 16>> digest;
};

// `path` as in platform/files.h.
DigestResult md5_of_file(const std::string& path);

}  // namespace platform
