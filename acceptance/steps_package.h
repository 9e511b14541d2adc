// Steps of group 1 that stand in files of their own.
#pragma once

#include "step.h"

namespace zorvalis::acceptance {

inline constexpr int kInstallSeconds = 240;

// The executable's own -install and -remove.
void InstallsItself(Findings& findings);
void RemovesTasks(Findings& findings);
void RemoveOwnEntry();

// What lies in the data folder's place before the installation.
void RefusesHeldFolder(Findings& findings);
void RefusesJunction(Findings& findings);
void MovesLinksAside(Findings& findings);
void MovesUsersFolderAside(Findings& findings);
void TakePlanted();

// An upgrade whose last step fails.
void TakesUpgradeBack(Findings& findings);
void PutMarkedFileBack();

}  // namespace zorvalis::acceptance
