// The pieces of group 7, each with its subject.
#pragma once

#include <vector>

#include "step.h"

namespace zorvalis::acceptance {

std::vector<Step> LockSteps();
std::vector<Step> LinkSteps();
std::vector<Step> FileSteps();
std::vector<Step> DiskSteps();
std::vector<Step> RegistrySteps();
std::vector<Step> TimeSteps();
std::vector<Step> LibrarySteps();
std::vector<Step> ProcessSteps();
std::vector<Step> AccessSteps();
std::vector<Step> ToolSteps();

}  // namespace zorvalis::acceptance
