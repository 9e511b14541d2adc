// The Task Scheduler of Windows; files under tasks/ on the stand-in machine. Each function enters COM, makes its steps
// up to the first that fails, releases everything and leaves COM. Texts are UTF-8. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

// The steps in their order: those that every function begins with, then those of each function.
enum class TaskStep {
    enter,  // the calling thread enters COM's multithreaded apartment
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

    find_task,
};

// What disable_task met at one registered task: get_task or get_task_name when that step failed, put_task_enabled when
// the task has the name and was to be disabled.
struct TaskItem {
    std::int32_t index;  // from 1
    TaskStep step;
};

struct TaskResult {
    TaskStep step = TaskStep::enter;  // the last one made, or the one that failed
    std::int32_t status = 0;          // its HRESULT: negative for a failure
    std::vector<TaskItem> items;      // filled by disable_task only
};

struct ScheduledTask {
    std::string author;
    std::int32_t run_level = 0;  // 1 is the highest
    bool start_when_available = false;
    std::string execution_time_limit = "PT72H";  // empty or a duration of 0: no limit
    bool disallow_start_if_on_batteries = true;
    std::string trigger_id;
    std::string start_boundary;  // local time, "2026-11-12T09:08:00"
    std::string interval;        // an ISO 8601 duration; empty: the task starts once
    std::string path;
    std::string arguments;
    std::string user;
    std::int32_t logon_type = 0;
};

// Makes the task, or replaces the one that has the name.
TaskResult register_task(const std::string& name, const ScheduledTask& task);

// Looks at every task of the root folder; one that cannot be read is skipped.
TaskResult disable_task(const std::string& name);

TaskResult delete_task(const std::string& name);

constexpr std::int32_t kNoSuchTask = static_cast<std::int32_t>(0x80070002);  // a status of find_task

// A registered task, as zorvctl tells of it.
struct RegisteredTask {
    bool enabled = false;
    std::int64_t next_start = 0;  // in seconds since 1970; 0 when no start is to come
    std::int64_t interval = 0;    // in seconds; 0 when it is not known
    std::string path;             // of what it starts
    std::string arguments;
};

// Reads a task and changes nothing. The next start is the first that is not before `now`.
TaskResult find_task(const std::string& name, std::int64_t now, RegisteredTask& task);

}  // namespace platform
