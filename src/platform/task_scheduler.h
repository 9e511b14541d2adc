// The system's task scheduler, one call for each step that its interfaces have. Every call answers with the system's
// status: negative for a failure, in the numbers of Windows. An object is one visit: `enter` comes first, each other
// step needs the objects of those before it, and whatever exists is released, the last first, and left with the
// object. It belongs to one thread.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

class TaskScheduler {
public:
    using Status = std::int32_t;

    TaskScheduler();
    ~TaskScheduler();
    TaskScheduler(const TaskScheduler&) = delete;
    TaskScheduler& operator=(const TaskScheduler&) = delete;

    Status enter();  // COM, in the multithreaded apartment
    Status create_service();
    Status connect();
    Status get_root_folder();

    // A new definition, from its author to its registration.
    Status new_task();
    Status get_registration_info();
    Status put_author(const wchar_t* author);
    Status get_principal();
    Status put_run_level(std::int32_t level);
    Status get_settings();
    Status put_start_when_available(bool on);
    Status put_execution_time_limit(const wchar_t* limit);
    Status put_disallow_start_if_on_batteries(bool on);
    Status get_triggers();
    Status create_time_trigger();
    Status query_time_trigger();
    Status put_trigger_id(const wchar_t* id);
    Status put_start_boundary(const wchar_t* local_time);
    Status get_repetition();
    Status put_repetition_interval(const wchar_t* interval);
    Status get_actions();
    Status create_exec_action();
    Status query_exec_action();
    Status put_action_path(const wchar_t* path);
    Status put_action_arguments(const wchar_t* arguments);
    Status register_task(const wchar_t* name, std::int32_t flags, const wchar_t* user, std::int32_t logon_type,
                         const wchar_t* security);

    // The registered tasks of the root folder.
    Status get_tasks();
    Status get_task_count(std::int32_t& count);
    Status get_task(std::int32_t index);  // from 1; the steps below are on it
    Status get_task_name(std::wstring& name);
    Status get_task_state(std::int32_t& state);
    Status put_task_enabled(bool on);

    Status delete_task(const wchar_t* name);

private:
    struct State;
    State* state_;
};

}  // namespace platform
