// The writers' lock is flock on hardware.json itself; a new file is renamed into place.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "file_text.h"
#include "line.h"
#include "platform/stand_in/machine_place.h"

namespace zorvalis {
namespace {

constexpr std::string_view kName = "/hardware.json";

void MachineFolder(Line& folder) {
    const platform::MachinePlace place = platform::machine_place();
    folder = {place.base.empty() ? "/dev/null" : place.base, place.rest};
}

// The folder that the library was loaded from, with its closing slash.
void OwnFolder(Line& folder) {
    Dl_info info{};
    std::string_view path;
    if (dladdr(reinterpret_cast<const void*>(&OwnFolder), &info) != 0 && info.dli_fname != nullptr) {
        path = info.dli_fname;
    }
    while (!path.empty() && path.back() != '/') {
        path.remove_suffix(1);
    }
    folder = {path.empty() ? "." : path};
}

int OpenFor(const char* path) {
    // O_NONBLOCK: does not wait if someone has put a pipe in the file's place.
    return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

// Opens the machine's file or else the one beside the library; `folder` tells which. -1 when there is neither.
int OpenCurrent(Line& folder) {
    for (void (*const find)(Line&) : {MachineFolder, OwnFolder}) {
        find(folder);
        Line path{folder.view(), kName};
        const int file = path.whole() ? OpenFor(path.c_str()) : -1;
        if (file >= 0) {
            return file;
        }
    }
    return -1;
}

int OpenCurrent() {
    Line folder;
    return OpenCurrent(folder);
}

bool SameFile(int left, int right) {
    struct stat a {};
    struct stat b {};
    return fstat(left, &a) == 0 && fstat(right, &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Opens and locks the file itself, so that no lock file is left behind. While this waits, the holder of the lock may
// rename a new file into its place; then the new one is locked.
int OpenLocked() {
    int file = OpenCurrent();
    while (file >= 0) {
        while (flock(file, LOCK_EX) != 0 && errno == EINTR) {
        }
        const int current = OpenCurrent();
        const bool same = current < 0 || SameFile(file, current);
        if (same) {
            if (current >= 0) {
                close(current);
            }
            break;
        }
        close(file);
        file = current;
    }
    return file;
}

bool WriteWhole(int file, std::string_view piece) {
    while (!piece.empty()) {
        const ssize_t written = write(file, piece.data(), piece.size());
        if (written <= 0) {
            return false;
        }
        piece.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

FileText::FileText(Purpose purpose) {
    const int file = purpose == Purpose::read ? OpenCurrent() : OpenLocked();
    struct stat status {};
    if (file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
        static_cast<std::size_t>(status.st_size) <= kLargest) {
        const auto size = static_cast<std::size_t>(status.st_size);
        data_ = static_cast<char*>(std::malloc(size + 1));
        ssize_t count = 1;
        while (data_ != nullptr && size_ < size && count > 0) {
            count = read(file, data_ + size_, size - size_);
            size_ += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
    }
    if (purpose == Purpose::change) {
        lock_ = file;
    } else if (file >= 0) {
        close(file);
    }
}

FileText::~FileText() {
    if (lock_ >= 0) {
        close(static_cast<int>(lock_));
    }
    std::free(data_);
}

bool FileText::Replace(std::initializer_list<std::string_view> pieces) {
    // While we hold the lock nobody replaces the file, so this finds the folder of the one that was read.
    Line folder;
    const int current = OpenCurrent(folder);
    if (current >= 0) {
        close(current);
    }
    struct stat status {};
    Line path{folder.view(), kName};
    Line fresh{folder.view(), "/.hardware.json.new"};
    if (lock_ < 0 || fstat(static_cast<int>(lock_), &status) != 0 || !path.whole() || !fresh.whole()) {
        return false;
    }
    const int file = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, status.st_mode & 0777);
    if (file < 0) {
        return false;
    }
    bool whole = true;
    for (const std::string_view piece : pieces) {
        whole = whole && WriteWhole(file, piece);
    }
    whole = close(file) == 0 && whole && std::rename(fresh.c_str(), path.c_str()) == 0;
    if (!whole) {
        unlink(fresh.c_str());
    }
    return whole;
}

}  // namespace zorvalis
