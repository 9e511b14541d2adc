// A scheduled task of the stand-in machine, kept in tasks/<name>.json. The task scheduler writes and reads the file,
// `zorvctl tasks` reads it and starts the task. Pure functions of texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/task_scheduler.h"

namespace platform {

inline constexpr char kTaskFolder[] = "tasks";
inline constexpr char kTaskEnding[] = ".json";

struct TaskDefinition : ScheduledTask {
    bool enabled = true;
};

std::string task_text(const std::string& name, const TaskDefinition& task);

// Raises std::invalid_argument, with the reason in words, for a task that can never start. Members that are missing
// have the values of a new definition.
TaskDefinition parse_task(const std::string& text);

enum class TaskFault { none, missing, invalid };
TaskFault task_fault(const ScheduledTask& task);

// The first start that is not before `from`. Nothing for a task that is disabled or over.
std::optional<std::int64_t> next_start(const TaskDefinition& task, std::int64_t from);

// Seconds of a duration such as "PT5M" or "P1DT12H".
std::optional<std::int64_t> task_duration(const std::string& text);

// Seconds since 1970 of a start boundary.
std::optional<std::int64_t> task_time(const std::string& text);

}  // namespace platform
