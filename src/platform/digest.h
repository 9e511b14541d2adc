// MD5 of a file, computed by CryptoAPI on Windows and by libcrypto on the stand-in machine. The steps are those of
// CryptoAPI; the first that fails ends the act, and the core logs which one it was. Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace platform {

enum class DigestStep { open, acquire_provider, create_hash, read, add, value };

struct DigestResult {
    DigestStep step = DigestStep::open;  // the last one made, or the one that failed
    std::uint32_t error = 0;             // why it failed, as a Windows error number; 0 for success
    std::optional<std::array<std::uint8_t, 16>> digest;
};

// `path` as in platform/files.h. `digest` is empty when a step failed.
DigestResult md5_of_file(const std::string& path);

}  // namespace platform
