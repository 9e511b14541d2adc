// The writers' lock is flock on the folder, so no lock file is left behind; a new file is renamed into place.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "file_place.h"
#include "platform/stand_in/machine_place.h"

namespace zorvalis {
namespace {

std::string_view FolderOf(std::string_view path) {
    while (!path.empty() && path.back() != '/') {
        path.remove_suffix(1);
    }
    return path.empty() ? "./" : path;
}

}  // namespace

bool AddMachineFolder(Line& path) {
    const platform::MachinePlace place = platform::machine_place();
    return !place.base.empty() && path.Add(place.base).Add(place.rest).Add("/").whole();
}

bool AddOwnFolder(Line& path) {
    Dl_info info{};
    return dladdr(reinterpret_cast<const void*>(&AddOwnFolder), &info) != 0 && info.dli_fname != nullptr &&
           path.Add(FolderOf(info.dli_fname)).whole();
}

bool ReadWhole(const char* path, char*& data, std::size_t& size) {
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status {};
    // A file that cannot be opened just now, say for want of descriptors, is there all the same.
    const bool regular = (file >= 0 ? fstat(file, &status) : stat(path, &status)) == 0 && S_ISREG(status.st_mode);
    if (file < 0) {
        return regular;
    }
    const auto whole = static_cast<std::size_t>(status.st_size);
    data = regular && whole <= kLargest ? static_cast<char*>(std::malloc(whole + 1)) : nullptr;
    const ssize_t count = data != nullptr ? read(file, data, whole) : 0;
    size = count > 0 ? static_cast<std::size_t>(count) : 0;
    close(file);
    return regular;
}

std::FILE* Create(const char* path) {
    return std::fopen(path, "we");
}

bool MoveInto(const char* fresh, const char* path) {
    struct stat status {};
    const bool moved =
        stat(path, &status) == 0 && chmod(fresh, status.st_mode & 0777) == 0 && std::rename(fresh, path) == 0;
    if (!moved) {
        unlink(fresh);
    }
    return moved;
}

std::intptr_t TakeTurn(FileText::Purpose purpose, const char* path) {
    if (purpose == FileText::Purpose::read) {
        return -1;
    }
    Line folder{FolderOf(path)};
    const int turn = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    while (turn >= 0 && flock(turn, LOCK_EX) != 0 && errno == EINTR) {
    }
    return turn;
}

void EndTurn(std::intptr_t turn) {
    if (turn >= 0) {
        close(static_cast<int>(turn));
    }
}

}  // namespace zorvalis
