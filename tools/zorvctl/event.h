// Lets something happen to the stand-in machine, as `zorvctl event` words it. On Windows it fails.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// The names of the events: sleep and waking, a state that lasts (lid, mains, display), an event of the firmware.
inline constexpr char kSuspend[] = "suspend", kResume[] = "resume", kLid[] = "lid", kMains[] = "ac",
                      kDisplay[] = "display", kFirmware[] = "wmi";

// Throws a Failure. `value` is the number of what happened: a state, or the firmware's event.
void LetHappen(const std::string& event, std::int64_t value);

}  // namespace zorvalis
