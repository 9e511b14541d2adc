// Hands a user's answer to the privacy policy, with the device's UUID, to the closed library that records it. Takes no
// lock: two calls may load the library at once.
#pragma once

#include <string>

#include "common/time.h"

namespace zorvalis {

// True when the library says that it recorded the answer; false for any other result, and without the library. `time`
// is when the user answered. CallPP takes wide texts, CallPPForString texts in the ANSI code page.
bool CallPP(const std::wstring& windowsAccount, const std::wstring& appName, const std::wstring& appVersion,
            const SystemTime& time, bool isAgreePP);
bool CallPPForString(std::string windowsAccount, std::string appName, std::string appVersion, SystemTime time,
                     bool isAgreePP);

}  // namespace zorvalis
