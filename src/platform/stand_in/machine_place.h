// Finds the stand-in machine's folder. The stand-in hardware library uses this too and has no C++ runtime, so nothing
// here may allocate.
#pragma once

#include <cstdlib>
#include <string_view>

namespace platform {

// The folder's path in two pieces; both empty when the environment names no place.
struct MachinePlace {
    std::string_view base, rest;
};

// ZORV_MACHINE, else the user's state folder. A relative XDG_STATE_HOME does not count.
inline MachinePlace machine_place() {
    const auto environment = [](const char* name) -> std::string_view {
        const char* const value = std::getenv(name);
        return value != nullptr ? value : "";
    };
    if (const std::string_view named = environment("ZORV_MACHINE"); !named.empty()) {
        return {named, ""};
    }
    if (const std::string_view state = environment("XDG_STATE_HOME"); state.starts_with('/')) {
        return {state, "/zorv-machine"};
    }
    const std::string_view home = environment("HOME");
    return home.empty() ? MachinePlace{} : MachinePlace{home, "/.local/state/zorv-machine"};
}

}  // namespace platform
