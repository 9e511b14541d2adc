// A file descriptor that an object owns, and calls that a signal interrupts. Any thread.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

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
    ~Descriptor() {
        if (descriptor_ >= 0) {
            const int error = errno;
            ::close(descriptor_);
            errno = error;
        }
    }

    int get() const { return descriptor_; }
    int release() { return std::exchange(descriptor_, -1); }
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

}  // namespace platform
