// The stand-in machine's folder, for the tools beside the service. On Windows the machine is the real one.
#pragma once

#include <string>

namespace platform {

// The folder in UTF-8: ZORV_MACHINE, else the user's state folder. Empty on Windows.
std::string machine_folder();

// Why the machine cannot be used (a path too long, say), in a sentence; empty when it can. Makes a missing folder.
std::string machine_problem();

}  // namespace platform
