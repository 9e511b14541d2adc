// Whether this machine may collect at all: the user has not switched it off, it has left the factory and been in use
// for a week, the collection period is not over, and today is a do-job day. The predicates read what rules.h judges,
// log it, and some write registry values. Number parsers raise their errors for settings and registry texts that hold
// no number.
#pragma once

#include <string>

#include "collection/zorv_win_io_dll.h"
#include "jobs/rules.h"

namespace zorvalis {

// Read what the rules ask for and change nothing, so that zorvctl may read it too.
std::string ActivationText(ZorvWinIoDll& library);
std::wstring ChassisText(ZorvWinIoDll& library);
ManufacturingDate StoredManufacturingDate();

// The local midnight just past.
std::int64_t MidnightBefore(std::int64_t seconds);

// From local midnight of a date with three fields until now.
double AgeInSeconds(const std::wstring& date);

// False in a factory image and in the out-of-box setup.
bool isImageStateComplete();

// The factory's date, or its substitute, as year, month and day with slashes.
std::wstring getManufacturingDate();
void writeFakeManufacturingDate();

// Whether more than a week has gone since that date.
bool isReadyToDoJobByManufacturingDate();

// A machine that has never been asked is switched on.
bool isMainSwitchEnable();

// Whether collecting must stop for good: "totalCollectTime" months after activation or manufacture.
bool isOverTotalCollectTime();

// Whether today lies in a do-job day, 24 hours from a local midnight, "intervalTimer" days apart.
bool isSpecificDojobDay();

}  // namespace zorvalis
