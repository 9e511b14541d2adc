// The scheduled tasks of a stand-in machine, and when they are to start.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/stand_in/task_file.h"

namespace zorvalis {

struct Task {
    std::string name;
    std::string text;     // of its file
    std::string problem;  // why it is no task that could be started; empty when it is one
    platform::TaskDefinition definition;

    // In seconds; 0 for a single start and for no limit.
    std::int64_t Interval() const;
    std::int64_t Limit() const;

    // The first start that is not before `from`. Nothing for a task that is disabled, over or broken.
    std::optional<std::int64_t> NextStart(std::int64_t from) const;

    // The latest start that is neither before `from` nor after `to`.
    std::optional<std::int64_t> LatestStart(std::int64_t from, std::int64_t to) const;
};

// In the order of their names.
std::vector<Task> ReadTasks(const std::string& machine);

}  // namespace zorvalis
