// dlopen of the library beside the executable (or beside the path of set_module_path).
#include "platform/library.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "platform/linux/wide.h"
#include "platform/module.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

template <class Part>
bool read_part(int file, Part* part, std::size_t count, ElfW(Off) offset) {
    const std::size_t size = count * sizeof(Part);
    return retry([=] { return ::pread(file, part, size, static_cast<off_t>(offset)); }) == static_cast<ssize_t>(size);
}

// Whether the file holds all of its segments. dlopen maps a truncated file too, and the process would die by SIGBUS at
// the first missing page.
bool holds_segments(const std::string& path) {
    const Descriptor file(retry([&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    struct stat status {};
    ElfW(Ehdr) header;
    if (!file || ::fstat(file.get(), &status) != 0 || !read_part(file.get(), &header, 1, 0)) {
        return false;
    }
    std::vector<ElfW(Phdr)> segments(header.e_phnum);
    if (!read_part(file.get(), segments.data(), segments.size(), header.e_phoff)) {
        return false;
    }
    for (const auto& segment : segments) {
        const auto size = static_cast<ElfW(Off)>(status.st_size);
        if (segment.p_type == PT_LOAD && (segment.p_offset > size || segment.p_filesz > size - segment.p_offset)) {
            return false;
        }
    }
    return true;
}

// The same, by one call when the file is the one that was found whole last: a pass loads the library some fifty times.
// To be called under the lock of loader().
bool is_whole_library(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return false;
    }
    const std::tuple now(status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
    static std::remove_const_t<decltype(now)> whole;
    if (now != whole && holds_segments(path)) {
        whole = now;
    }
    return now == whole;
}

// dlopen locks by itself, but the thread sanitizer does not see that lock. Never destroyed.
std::mutex& loader() {
    static auto* const mutex = new std::mutex;
    return *mutex;
}

}  // namespace

SharedLibrary::SharedLibrary(const wchar_t* name) : handle_(nullptr) {
    std::array<wchar_t, PATH_MAX> module;
    const int length = module_file_name(module.data(), static_cast<int>(module.size()));
    std::string path = to_utf8({module.data(), static_cast<std::size_t>(length)});
    path.resize(path.find_last_of('/') + 1);
    path += to_utf8(name);
    if (path.ends_with(".dll")) {
        path.replace(path.size() - 4, 4, ".so");
    }
    // For a name without a slash dlopen would search the host's library folders.
    const std::lock_guard guard(loader());
    if (path.find('/') != std::string::npos && is_whole_library(path)) {
        handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    }
}

SharedLibrary::~SharedLibrary() {
    if (handle_ != nullptr) {
        const std::lock_guard guard(loader());
        ::dlclose(handle_);
    }
}

void* SharedLibrary::symbol(const char* name) const {
    return handle_ != nullptr ? ::dlsym(handle_, name) : nullptr;
}

}  // namespace platform
