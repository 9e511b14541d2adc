// What the service manager tells of a service's states.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "step.h"

namespace zorvalis::acceptance {

// Does `act` and listens until the service has the state `last` and nothing more has come for two seconds; half a
// minute without a word ends it too. The states in order, "STOP_PENDING STOPPED"; one that lasts for a moment may be
// missing.
std::string StatesAfter(Findings& findings, const std::wstring& service, DWORD last, const std::function<void()>& act);

}  // namespace zorvalis::acceptance
