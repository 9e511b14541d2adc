// What an installed product has to look like: each function notes what it finds.
#pragma once

#include <string>
#include <vector>

#include "step.h"

namespace zorvalis::acceptance {

// The files of the package and, of others, those in `more` alone.
void ExpectFiles(Findings& findings, const std::vector<std::string>& more = {});

void ExpectOneProgram(Findings& findings);
void ExpectServiceEntry(Findings& findings);
void ExpectRecovery(Findings& findings);
void ExpectAccessLists(Findings& findings);
void ExpectEventSource(Findings& findings);
void ExpectPath(Findings& findings);

}  // namespace zorvalis::acceptance
