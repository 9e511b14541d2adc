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
    std::string text;     // the file's contents
    std::string problem;  // why it can never be started; empty when it can
    platform::TaskDefinition definition;

    // In seconds. An interval of 0 means one single start, a limit of 0 none.
    std::int64_t Interval() const;
    std::int64_t Limit() const;

    // The first start that is not before `from`. Nothing for a task that is disabled, over or broken.
    std::optional<std::int64_t> NextStart(std::int64_t from) const;

    // The latest start that is neither before `from` nor after `to`.
    std::optional<std::int64_t> LatestStart(std::int64_t from, std::int64_t to) const;
};

// Sorted by name. A file that cannot be read becomes a task with a `problem`.
std::vector<Task> ReadTasks(const std::string& machine);

}  // namespace zorvalis
