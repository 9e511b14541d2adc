// Whether this machine may collect at all: the user has not switched it off, it has left the factory and been in use
// for a week, the collection period is not over, and today is a do-job day. Some of them write registry values as a
// side effect. Number parsers raise their errors for settings and registry texts that hold no number.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zorvalis {

// What the predicates below make of what they read; these change nothing, so that others may ask too.

// The start of the collection period as the firmware or a date with slashes tells it, in units of 100 nanoseconds since
// 1601. A missing hardware library is reported to the event log.
std::optional<std::uint64_t> ActivationTime();
std::optional<std::uint64_t> ManufacturingTime(const std::wstring& date);
std::uint32_t CollectSeconds(std::int32_t months);
bool MainSwitchIsOn(const std::wstring& value);

// The factory's date, or else its substitute; empty when neither has three fields.
std::wstring StoredManufacturingDate();

// Seconds from local midnight of a date with three fields until now, and whether a machine of that age may collect.
double AgeInSeconds(const std::wstring& date);
bool IsOlderThanAWeek(double seconds);

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
