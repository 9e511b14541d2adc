// What an installed product has to look like: each function notes what it finds.
#pragma once

#include <string>
#include <vector>

#include "step.h"

namespace zorvalis::acceptance {

// The files of the package and, of others, those in `more` alone.
void ExpectFiles(Findings& findings, const std::vector<std::string>& more = {});

// Owner and access list in Windows' words, "O:BAD:PAI(A;OICI;FA;;;SY)..."; empty when they cannot be read.
std::string AccessText(const std::string& path);

void ExpectOneProgram(Findings& findings);
void ExpectServiceEntry(Findings& findings);
void ExpectRecovery(Findings& findings);
void ExpectAccessLists(Findings& findings);
void ExpectEventSource(Findings& findings);
void ExpectPath(Findings& findings);

}  // namespace zorvalis::acceptance
