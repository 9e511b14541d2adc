// Hands a user's answer to the privacy policy, with the device's identity, to the closed library that records it. No
// lock: two calls may load the library at once.
#pragma once

#include <string>

#include "common/time.h"

namespace zorvalis {

// Both are true exactly when the library says that the answer was recorded; a missing library gives false. Wide text,
// and text in the ANSI code page.
bool CallPP(const std::wstring& windowsAccount, const std::wstring& appName, const std::wstring& appVersion,
            const SystemTime& time, bool isAgreePP);
bool CallPPForString(std::string windowsAccount, std::string appName, std::string appVersion, SystemTime time,
                     bool isAgreePP);

}  // namespace zorvalis
