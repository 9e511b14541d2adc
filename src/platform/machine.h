// The stand-in machine's folder, for the tools beside the service. On Windows, where the machine is the real one, both
// functions return an empty text. Any thread.
#pragma once

#include <string>

namespace platform {

// The folder's absolute path in UTF-8: ZORV_MACHINE, else zorv-machine in the user's state folder.
std::string machine_folder();

// Why the machine cannot be used (a path too long, say), in a sentence; empty when it can be used. Makes the folder
// when it is missing.
std::string machine_problem();

}  // namespace platform
