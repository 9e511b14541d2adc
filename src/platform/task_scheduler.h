// The system's task scheduler. Each function is one whole act: it enters COM, goes through its steps and, at the first
// that fails, no further; then it releases everything and leaves COM. Texts are UTF-8. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

// The steps in their order: what every act begins with, then those of each act.
enum class TaskStep {
    enter,  // COM, in the multithreaded apartment
    create_service,
    connect,
    get_root_folder,

    new_task,
    get_registration_info,
    put_author,
    get_principal,
    put_run_level,
    get_settings,
    put_start_when_available,
    put_execution_time_limit,
    put_disallow_start_if_on_batteries,
    get_triggers,
    create_time_trigger,
    query_time_trigger,
    put_trigger_id,
    put_start_boundary,
    get_repetition,
    put_repetition_interval,
    get_actions,
    create_exec_action,
    query_exec_action,
    put_action_path,
    put_action_arguments,
    register_task,

    get_tasks,
    get_task_count,
    get_task,
    get_task_name,
    put_task_enabled,

    delete_task,
};

// One of the registered tasks, and how far it came: to a failed get_task or get_task_name, or, when it has the name, to
// put_task_enabled.
struct TaskItem {
    std::int32_t index;  // from 1
    TaskStep step;
};

struct TaskResult {
    TaskStep step = TaskStep::enter;  // the last that was done, or the one that failed
    std::int32_t status = 0;          // its status: negative for a failure, in the numbers of Windows
    std::vector<TaskItem> items;      // of disable_task
};

struct ScheduledTask {
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
};

// Makes the task or replaces the one of that name.
TaskResult register_task(const std::string& name, const ScheduledTask& task);

// Goes through all tasks of the root folder, and over those that fail.
TaskResult disable_task(const std::string& name);

TaskResult delete_task(const std::string& name);

}  // namespace platform
