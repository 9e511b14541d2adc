// For tests of the stand-in machine: lets one step of the task scheduler, of the event subscription or of the endpoint
// fail.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace platform {

// From now on the step of that name (the name of the call) fails with that status; an empty name: none does.
void fail_step(const std::string& name, std::int32_t status);

// What the step is to answer with: the status above, or 0.
std::int32_t step_status(const std::string& name);

// The same for steps that the floor's header lists.
template <class Step>
concept ListedStep = std::is_enum_v<Step>;

template <ListedStep Step>
std::string step_name(Step step) {
    return typeid(Step).name() + std::to_string(static_cast<int>(step));
}

void fail_step(ListedStep auto step, std::int32_t status) {
    fail_step(step_name(step), status);
}

std::int32_t step_status(ListedStep auto step) {
    return step_status(step_name(step));
}

// Goes from one step to another, up to one that is to fail, and leaves in `result` how far it came.
template <ListedStep Step>
void pass_steps(Step first, Step last, auto& result) {
    for (int step = static_cast<int>(first); step <= static_cast<int>(last) && result.status == 0; ++step) {
        result.step = static_cast<Step>(step);
        result.status = step_status(result.step);
    }
}

}  // namespace platform
