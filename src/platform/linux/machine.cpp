#include "platform/machine.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>

namespace platform {
namespace {

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

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
    const std::string named = environment("ZORV_MACHINE");
    if (!named.empty()) {
        return absolute(named);
    }
    const std::string state = environment("XDG_STATE_HOME");
    if (!state.empty() && state.front() == '/') {
        return state + "/zorv-machine";
    }
    const std::string home = environment("HOME");
    return home.empty() ? "" : home + "/.local/state/zorv-machine";
}

}  // namespace platform
