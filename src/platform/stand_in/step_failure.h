// For tests of the stand-in machine: lets one step of the task scheduler, of the event subscription or of the endpoint
// fail, where nothing real would. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace platform {

// From now on this one step, named by its call, fails with `status`. An empty name lets all steps pass again.
void fail_step(const std::string& name, std::int32_t status);

// What the step must return: the status set above, or 0.
std::int32_t step_status(const std::string& name);

// The same for steps that are an enumeration in a header of the floor.
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

// Walks the steps from `first` to `last` and stops at one that a test lets fail; `result` gets the step reached and its
// status.
template <ListedStep Step>
void pass_steps(Step first, Step last, auto& result) {
    for (int step = static_cast<int>(first); step <= static_cast<int>(last) && result.status == 0; ++step) {
        result.step = static_cast<Step>(step);
        result.status = step_status(result.step);
    }
}

}  // namespace platform
