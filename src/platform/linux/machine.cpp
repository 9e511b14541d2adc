// Where the machine's folder is, and whether it can be used: it exists, and its paths fit sockets and the core's
// buffers.
#include "platform/machine.h"

#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/linux/wide.h"
#include "platform/module.h"
#include "platform/stand_in/machine_place.h"

namespace platform {
namespace {

constexpr std::string_view kLongestSocket = "/run/ZorvHelpRpcEndpoint";
// A folder whose socket paths fit sockaddr_un has no path that is too long for the core's 260-byte buffers.
constexpr std::size_t kLongestFolder = sizeof(sockaddr_un::sun_path) - 1 - kLongestSocket.size();
constexpr std::size_t kPathBuffer = 260;

std::string absolute(std::string folder) {
    while (folder.size() > 1 && folder.back() == '/') {
        folder.pop_back();
    }
    if (folder.front() == '/') {
        return folder;
    }
    std::array<char, PATH_MAX> current;
    return ::getcwd(current.data(), current.size()) != nullptr ? std::string(current.data()) + "/" + folder : folder;
}

}  // namespace

std::string machine_folder() {
    const MachinePlace place = machine_place();
    return place.base.empty() ? "" : absolute(std::string(place.base).append(place.rest));
}

std::string machine_problem() {
    const std::string folder = machine_folder();
    if (folder.empty()) {
        return "There is no folder for the machine: set ZORV_MACHINE to one.";
    }
    if (folder.size() > kLongestFolder) {
        return "The machine's folder " + folder +
               " has a path too long for its sockets: set ZORV_MACHINE to one of at most " +
               std::to_string(kLongestFolder) + " bytes.";
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return "The machine's folder " + folder + " cannot be made: " + error.message() + ".";
    }
    std::array<wchar_t, PATH_MAX> module;
    const int length = module_file_name(module.data(), static_cast<int>(module.size()));
    if (length == 0 || to_utf8({module.data(), static_cast<std::size_t>(length)}).size() >= kPathBuffer) {
        return "The path of the executable has " + std::to_string(kPathBuffer) +
               " bytes or more, or is no UTF-8: move it to a shorter one.";
    }
    return "";
}

}  // namespace platform
