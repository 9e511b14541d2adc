// What the parts of the stand-in machine share: descriptors, the machine's paths, whole small files, and lines that
// several processes append to one file. Nothing here throws but std::bad_alloc. Any thread.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/json.h"

namespace platform {

// Closes its descriptor and leaves errno alone.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor();

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

private:
    int descriptor_ = -1;
};

// Makes a system call again for as long as a signal interrupts it.
template <class Call>
auto retry(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

// The path of something in the machine's folder, with forward slashes.
std::string machine_path(std::string_view name);

// Makes the folder with all its parents; true when it is there afterwards.
bool make_folders(const std::string& folder);

bool read_whole(int descriptor, std::string& text);  // at most 1 MiB
bool write_whole(int descriptor, std::string_view text);

// A file of the machine for lines: each is to be one call of write_whole, so that processes do not mix theirs.
Descriptor open_lines(const char* name);
bool append_json(const char* name, const zorvalis::Json& line);

// Nothing when the file is missing or no JSON object.
std::optional<zorvalis::Json> read_machine_json(const char* name);

// A system error in the numbers of Windows.
std::uint32_t windows_error(int error);

}  // namespace platform
