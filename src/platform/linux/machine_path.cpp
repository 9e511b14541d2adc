#include "platform/linux/machine_path.h"

#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "platform/machine.h"

namespace platform {

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

}  // namespace platform
