// Where the machine's folder is, as an absolute path.
#include "platform/machine.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <string>

#include "platform/stand_in/machine_place.h"

namespace platform {
namespace {

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

}  // namespace platform
