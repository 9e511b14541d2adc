// MD5 over what is read from a file, one call for each step that the system has. A failed step leaves its cause in
// `last_error`, in the numbers of Windows. An object belongs to one thread and releases what it opened, the hash first.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

class Md5 {
public:
    Md5();
    ~Md5();
    Md5(const Md5&) = delete;
    Md5& operator=(const Md5&) = delete;

    bool acquire_provider();
    bool create_hash();
    bool add(const void* data, std::size_t size);
    bool value(std::array<std::uint8_t, 16>& digest);

private:
    struct State;
    State* state_;
};

// A file open for reading, by the system's own calls; `path` as in platform/files.h.
class InputFile {
public:
    InputFile() = default;
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    bool open(const std::string& path);
    // `count` 0 is the end of the file.
    bool read(void* buffer, std::size_t size, std::size_t& count);

private:
    std::intptr_t handle_ = -1;
};

}  // namespace platform
