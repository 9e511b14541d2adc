// Group 7: files, registry, time and access.
#include "steps_machine.h"

namespace zorvalis::acceptance {

std::vector<Step> MachineSteps() {
    std::vector<Step> all;
    for (auto* subject : {LockSteps, LinkSteps, FileSteps, DiskSteps, RegistrySteps, TimeSteps, LibrarySteps,
                          ProcessSteps, AccessSteps, ToolSteps}) {
        const std::vector<Step> its = subject();
        all.insert(all.end(), its.begin(), its.end());
    }
    return all;
}

}  // namespace zorvalis::acceptance
