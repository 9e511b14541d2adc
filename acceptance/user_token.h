// Tokens of Windows: whose they are, and one of an ordinary user.
#pragma once

#include <windows.h>

#include <string>

#include "platform/windows/handles.h"
#include "step.h"

namespace zorvalis::acceptance {

// A copy of this process's token without the rights of an administrator, such as Windows gives to the programs of an
// administrator who has not been asked. What is made with it belongs to the user. Ends the step when there is none.
platform::OwnedHandle UserToken(Findings& findings, TOKEN_TYPE type = TokenPrimary);

// The user of a token, "S-1-5-21-...", and any such number as text; empty when Windows does not tell.
std::string UserOf(HANDLE token);
std::string SidText(PSID sid);

}  // namespace zorvalis::acceptance
