// Who makes a call, as a server sees it.
#pragma once

#include <string>

namespace zorvalis::acceptance {

// In a procedure of a server: its client as JSON, "sid", "level" (of impersonation: 0 anonymous, 1 identification,
// 2 impersonation), "integrity" (the last number of its label), "container"; "error" when it cannot be asked.
std::string CallerOfThisCall();

// The same of this process; "level" is -1.
std::string ThisProcess();

}  // namespace zorvalis::acceptance
