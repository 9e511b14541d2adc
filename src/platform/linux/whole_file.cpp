#include "platform/linux/whole_file.h"

#include <unistd.h>

#include <array>

#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr std::size_t kLargestFile = 1 << 20;

}  // namespace

bool read_whole(int descriptor, std::string& text) {
    std::array<char, 4096> buffer;
    text.clear();
    for (;;) {
        const ssize_t count = retry([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
        if (count < 0) {
            return false;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
        if (text.size() > kLargestFile) {
            return false;
        }
        if (count < static_cast<ssize_t>(buffer.size())) {
            return true;  // Linux reads less of a file than was asked for only at its end
        }
    }
}

bool write_whole(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = retry([&] { return ::write(descriptor, text.data(), text.size()); });
        if (count < 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace platform
