// Files of the Linux host. A path on C: is one below the machine's folder.
#include "platform/files.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/linux/machine_path.h"
#include "platform/linux/windows_error.h"
#include "platform/machine.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr std::string_view kDrive = "C:\\";
constexpr std::uint32_t kPathNotFound = 3;

// Without one closing backslash, which folder_exists allows.
std::string folder_path(const std::string& path) {
    std::string folder = native_path(path);
    if (folder.size() > 1 && folder.back() == '\\') {
        folder.pop_back();
    }
    return folder;
}

// 0 when there is nothing at the path. Follows links.
mode_t mode_of(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

bool write_at(int file, const std::string& text, std::int64_t at) {
    return retry([&] { return ::pwrite(file, text.data(), text.size(), at); }) ==
           static_cast<ssize_t>(text.size());  // a short write means a full disk: no second try
}

// Writes an unnamed file and then gives it the name, which fails when another file has taken it meanwhile.
bool create_text(const std::string& path, const std::string& text) {
    const std::string folder = path.substr(0, path.find_last_of('/'));
    const Descriptor unnamed(retry([&] { return ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666); }));
    if (unnamed) {
        const std::string handle = "/proc/self/fd/" + std::to_string(unnamed.get());
        return write_at(unnamed.get(), text, 0) &&
               ::linkat(AT_FDCWD, handle.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
    }
    // Without O_TMPFILE in this file system, a kill between the two calls leaves an empty file.
    const Descriptor named(retry([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); }));
    const bool whole = named && write_at(named.get(), text, 0);
    if (named && !whole) {
        ::unlink(path.c_str());
    }
    return whole;
}

}  // namespace

std::string native_path(const std::string& path) {
    if (path.compare(0, kDrive.size(), kDrive) != 0) {
        return path;
    }
    std::string inside = path.substr(kDrive.size());
    std::replace(inside.begin(), inside.end(), '\\', '/');
    return machine_path(inside);
}

File open_file(const std::string& path, const char* mode) {
    const std::string name = native_path(path);
    const bool of_machine = name != path;
    File file;
    if (of_machine) {
        // Another program may have put a link or a pipe in the file's place: follow none, and do not wait for a pipe.
        const bool both = std::strchr(mode, '+') != nullptr;
        const int access = both ? O_RDWR : *mode == 'r' ? O_RDONLY : O_WRONLY;
        const int creates = *mode == 'w' ? O_CREAT | O_TRUNC : *mode == 'a' ? O_CREAT | O_APPEND : 0;
        const int flags = access | creates | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
        const int opened = retry([&] { return ::open(name.c_str(), flags, 0666); });
        file.reset(opened >= 0 ? ::fdopen(opened, mode) : nullptr);
    } else {
        file.reset(std::fopen(name.c_str(), (std::string(mode) + "e").c_str()));
    }
    struct stat status {};
    // Linux opens a folder for reading, and a device or pipe: callers expect a file, as on Windows.
    if (file != nullptr && (::fstat(::fileno(file.get()), &status) != 0 ||
                            (of_machine ? !S_ISREG(status.st_mode) : S_ISDIR(status.st_mode)))) {
        return nullptr;
    }
    if (file != nullptr) {
        // The header allows one thread at a time, so stdio need not lock for each byte, which costs more than the byte.
        ::__fsetlocking(file.get(), FSETLOCKING_BYCALLER);
    }
    return file;
}

std::int64_t seek_to_end(std::FILE* file) {
    return ::fseeko(file, 0, SEEK_END) == 0 ? ::ftello(file) : -1;
}

bool copy_bytes(std::FILE* from, std::FILE* to, std::int64_t most, std::uint8_t key) {
    for (std::int64_t copied = 0; copied < most; ++copied) {
        const int byte = ::getc_unlocked(from);
        if (byte == EOF) {
            break;
        }
        if (::putc_unlocked(byte ^ key, to) == EOF) {
            return false;
        }
    }
    return std::ferror(from) == 0 && std::fflush(to) == 0;
}

bool replace_text(const std::string& path, const std::string& text) {
    const std::string name = native_path(path);
    const Descriptor file(retry([&] { return ::open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); }));
    if (!file) {
        return errno == ENOENT && create_text(name, text);
    }
    struct stat status {};
    bool whole = ::fstat(file.get(), &status) == 0;
    const auto size = static_cast<off_t>(text.size());
    if (size > status.st_size) {
        whole = whole && write_at(file.get(), std::string(size - status.st_size, ' '), status.st_size);
    }
    std::string over = text;
    over.resize(std::max(size, status.st_size), ' ');
    whole = whole && write_at(file.get(), over, 0) && ::ftruncate(file.get(), size) == 0;
    if (!whole) {
        ::unlink(name.c_str());
    }
    return whole;
}

bool file_exists(const std::string& path) {
    const mode_t mode = mode_of(native_path(path));
    return mode != 0 && !S_ISDIR(mode);
}

bool path_exists(const std::string& path) {
    struct stat status {};
    return ::lstat(folder_path(path).c_str(), &status) == 0;
}

bool is_link(const std::string& path) {
    struct stat status {};
    return ::lstat(folder_path(path).c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool folder_exists(const std::string& path) {
    return S_ISDIR(mode_of(folder_path(path)));
}

bool create_folder(const std::string& path) {
    const std::string folder = folder_path(path);
    if (::mkdir(folder.c_str(), 0777) == 0) {
        return true;
    }
    // On Windows drive C: always exists, so the machine's folder is made when it is missing.
    return errno == ENOENT && path.compare(0, kDrive.size(), kDrive) == 0 && !folder_exists(std::string(kDrive)) &&
           make_folders(machine_folder()) && ::mkdir(folder.c_str(), 0777) == 0;
}

bool remove_file(const std::string& path) {
    return ::unlink(native_path(path).c_str()) == 0;
}

bool rename_file(const std::string& from, const std::string& to) {
    const std::string source = native_path(from);
    const std::string target = native_path(to);
    if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // Without RENAME_NOREPLACE in this file system the check and the renaming are two calls.
    struct stat status {};
    return ::lstat(target.c_str(), &status) != 0 && ::rename(source.c_str(), target.c_str()) == 0;
}

std::uint32_t list_folder(const std::string& folder, std::vector<FolderEntry>& entries) {
    entries.clear();
    std::error_code error;
    std::filesystem::directory_iterator entry(folder_path(folder), error);
    if (error.value() == ENOENT) {
        return kPathNotFound;
    }
    for (const std::filesystem::directory_iterator end; !error && entry != end; entry.increment(error)) {
        std::string name = entry->path().filename().string();
        // The core would take a backslash in a name for a separator of folders.
        if (name.find('\\') == std::string::npos) {
            std::error_code unknown;
            entries.push_back({std::move(name), entry->is_directory(unknown)});
        }
    }
    return windows_error(error.value());
}

}  // namespace platform
