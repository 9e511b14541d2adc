// For tests of the stand-in machine: lets one step of the task scheduler or of the event subscription fail.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

// From now on the step of that name (the name of the call) fails with that status; an empty name: none does.
void fail_step(const std::string& name, std::int32_t status);

// What the step is to answer with: the status above, or 0.
std::int32_t step_status(const char* name);

}  // namespace platform
