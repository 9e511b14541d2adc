// Group 7: files, registry, time and access.
#include "steps_machine.h"

#include <initializer_list>

namespace zorvalis::acceptance {

namespace {

std::vector<Step> Joined(std::initializer_list<std::vector<Step> (*)()> subjects) {
    std::vector<Step> all;
    for (auto* subject : subjects) {
        const std::vector<Step> its = subject();
        all.insert(all.end(), its.begin(), its.end());
    }
    return all;
}

}  // namespace

std::vector<Step> MachineSteps() {
    return Joined({LockSteps, LinkSteps, FileSteps, DiskSteps, RegistrySteps, TimeSteps, LibrarySteps});
}

std::vector<Step> InstalledSteps() {
    return Joined({ProcessSteps, AccessSteps, ToolSteps});
}

}  // namespace zorvalis::acceptance
