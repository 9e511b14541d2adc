#include "platform/linux/machine_path.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/machine.h"

namespace platform {

std::string machine_path(std::string_view name) {
    std::string folder = machine_folder();
    // Without a machine nothing is found and nothing can be made.
    return (folder.empty() ? "/dev/null" : std::move(folder)).append("/").append(name);
}

bool make_folders(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    errno = error.value();
    return !error;
}

}  // namespace platform
