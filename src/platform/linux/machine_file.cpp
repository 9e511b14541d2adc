#include "platform/linux/machine_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <new>

#include "platform/machine.h"

namespace platform {
namespace {

constexpr std::size_t kLargestFile = 1 << 20;

}  // namespace

Descriptor::~Descriptor() {
    if (descriptor_ >= 0) {
        const int error = errno;
        ::close(descriptor_);
        errno = error;
    }
}

std::string machine_path(std::string_view name) {
    std::string folder = machine_folder();
    // Without a machine nothing is found and nothing can be made.
    return (folder.empty() ? "/dev/null" : std::move(folder)).append("/").append(name);
}

bool make_folders(const std::string& folder) {
    if (::mkdir(folder.c_str(), 0777) != 0 && errno == ENOENT) {
        const std::size_t slash = folder.find_last_of('/');
        if (slash == std::string::npos || slash == 0 || !make_folders(folder.substr(0, slash))) {
            return false;
        }
        ::mkdir(folder.c_str(), 0777);
    }
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        return false;
    }
    errno = ENOTDIR;  // the cause, should it be the wrong thing
    return S_ISDIR(status.st_mode);
}

bool read_whole(int descriptor, std::string& text) {
    std::array<char, 4096> buffer;
    text.clear();
    for (;;) {
        const ssize_t count = retry([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
        if (count <= 0) {
            return count == 0;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
        if (text.size() > kLargestFile) {
            return false;
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

Descriptor open_lines(const char* name) {
    const std::string path = machine_path(name);
    const auto open = [&] {
        return retry([&] { return ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666); });
    };
    Descriptor file(open());
    if (!file && errno == ENOENT && make_folders(machine_folder())) {
        file = Descriptor(open());
    }
    return file;
}

bool append_json(const char* name, const zorvalis::Json& line) {
    const Descriptor file = open_lines(name);
    return file && write_whole(file.get(), zorvalis::DumpJson(line) + "\n");
}

std::optional<zorvalis::Json> read_machine_json(const char* name) {
    const std::string path = machine_path(name);
    const Descriptor file(retry([&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    std::string text;
    if (!file || !read_whole(file.get(), text)) {
        return std::nullopt;
    }
    try {
        zorvalis::Json json = zorvalis::ParseJson(text);
        return json.is_object() ? std::optional(std::move(json)) : std::nullopt;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace platform
