// A scheduled task as the stand-in machine keeps it, in tasks/<name>.json: written by the task scheduler's steps, read
// again by them and by whatever starts the tasks. Pure functions of texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

inline constexpr char kTaskFolder[] = "tasks";
inline constexpr char kTaskEnding[] = ".json";

// What a new definition holds before its fields are set. Texts are UTF-8.
struct TaskDefinition {
    std::string author;
    std::int32_t run_level = 0;  // 1 is the highest
    bool start_when_available = false;
    std::string execution_time_limit = "PT72H";  // empty or no time at all: none
    bool disallow_start_if_on_batteries = true;
    std::string trigger_id;
    std::string start_boundary;  // local time, "2026-11-12T09:08:00"
    std::string interval;        // empty: a single start
    std::string path;
    std::string arguments;
    std::string user;
    std::int32_t logon_type = 0;
    bool enabled = true;
};

std::string task_text(const std::string& name, const TaskDefinition& task);

// Raises std::invalid_argument, in words, for a text that is no task that could be started. Members that are missing
// are as in a new definition.
TaskDefinition parse_task(const std::string& text);

enum class TaskFault { none, missing, invalid };
TaskFault task_fault(const TaskDefinition& task);

// Seconds of a duration such as "PT5M" or "P1DT12H".
std::optional<std::int64_t> task_duration(const std::string& text);

// Seconds since 1970 of a start boundary.
std::optional<std::int64_t> task_time(const std::string& text);

}  // namespace platform
