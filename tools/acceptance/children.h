// Functions that a step runs in a process of their own: as another user, as a service, to be killed. The process is
// `zorv-acceptance.exe --child NAME ARGUMENTS...`; what it prints and its exit code go to whoever started it.
#pragma once

#include <string>
#include <vector>

namespace zorvalis::acceptance {

struct Child {
    const char* name;
    int (*run)(const std::vector<std::string>& arguments);
};

// Each group adds its own.
std::vector<Child> AllChildren();

int ServiceChild(const std::vector<std::string>& arguments);  // steps_service_own.cpp

// The command line that starts one.
std::string ChildCommand(const std::string& name, const std::vector<std::string>& arguments);

}  // namespace zorvalis::acceptance
