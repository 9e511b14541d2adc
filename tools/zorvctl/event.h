// What `zorvctl event` does. On Windows it fails.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// The names of the events: sleep and waking, a state that lasts (lid, mains, display), an event of the firmware.
inline constexpr char kSuspend[] = "suspend", kResume[] = "resume", kLid[] = "lid", kMains[] = "ac",
                      kDisplay[] = "display", kFirmware[] = "wmi";

// Lets the event happen to the stand-in machine. `value` is the new state of a setting, or the number of a firmware
// event; sleep and waking have none. Throws a Failure.
void LetHappen(const std::string& event, std::int64_t value);

}  // namespace zorvalis
