// The steps of group 2 that stand in files of their own.
#pragma once

#include "step.h"

namespace zorvalis::acceptance {

// steps_service_power.cpp
void RecordsPowerOn(Findings& findings);
void HearsOfTheDisplay(Findings& findings);

// steps_service_own.cpp: a service of the kit's own, on the product's floor
void EndsAHungMain(Findings& findings);
void SurvivesUnregistration(Findings& findings);
void RemoveOwnService();

}  // namespace zorvalis::acceptance
