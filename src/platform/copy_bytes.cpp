// The copy that both sides share, by the C library alone.
#include <algorithm>
#include <array>

#include "platform/files.h"

namespace platform {

bool copy_bytes(std::FILE* from, std::FILE* to, std::int64_t most, std::uint8_t key) {
    // As many bytes as a stream's own buffer holds: no larger one is used, and the files see the reads and writes of a
    // copy byte by byte.
    std::array<std::uint8_t, 0x1000> step{};
    std::size_t count = step.size();
    for (std::int64_t rest = most; rest > 0 && count == step.size(); rest -= static_cast<std::int64_t>(count)) {
        const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(rest, step.size()));
        count = std::fread(step.data(), 1, wanted, from);
        for (std::uint8_t& byte : step) {  // all of them: a loop of known length is made of vector instructions
            byte ^= key;
        }
        if (std::fwrite(step.data(), 1, count, to) != count) {
            return false;
        }
    }
    return std::ferror(from) == 0 && std::fflush(to) == 0;
}

}  // namespace platform
