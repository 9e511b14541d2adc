#include "platform/task_scheduler.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "platform/linux/registry_key.h"
#include "platform/linux/step_failure.h"
#include "platform/linux/task_file.h"

namespace platform {
namespace {

using Status = TaskScheduler::Status;

constexpr Status status_of(std::uint32_t number) {
    return static_cast<Status>(number);
}

constexpr Status kNoObject = status_of(0x80004003);      // E_POINTER
constexpr Status kNoItem = status_of(0x80070057);        // E_INVALIDARG
constexpr Status kNoTask = status_of(0x80070002);        // ERROR_FILE_NOT_FOUND
constexpr Status kBadName = status_of(0x8007007B);       // ERROR_INVALID_NAME
constexpr Status kTaken = status_of(0x800700B7);         // ERROR_ALREADY_EXISTS
constexpr Status kInvalidValue = status_of(0x80041318);  // SCHED_E_INVALIDVALUE
constexpr Status kMissingNode = status_of(0x80041319);   // SCHED_E_MISSINGNODE
constexpr Status kCorruptTask = status_of(0x80041321);   // SCHED_E_INVALID_TASK_HASH
constexpr std::int32_t kValidateOnly = 1, kCreate = 2, kUpdate = 4;
constexpr std::int32_t kStateDisabled = 1, kStateReady = 3;

// The objects of a visit, a bit each.
enum Object : unsigned {
    kService = 1 << 0,
    kConnection = 1 << 1,
    kFolder = 1 << 2,
    kDefinition = 1 << 3,
    kRegistration = 1 << 4,
    kPrincipal = 1 << 5,
    kSettings = 1 << 6,
    kTriggers = 1 << 7,
    kTrigger = 1 << 8,
    kTimeTrigger = 1 << 9,
    kRepetition = 1 << 10,
    kActions = 1 << 11,
    kAction = 1 << 12,
    kExecAction = 1 << 13,
    kTasks = 1 << 14,
    kTask = 1 << 15,
};

Status from_error(int error) {
    return error == 0 ? 0 : status_of(0x80070000U | windows_error(error));
}

// Empty for a name that no task of the root folder can have.
std::string file_of(const wchar_t* name) {
    std::string file = value_file(name);
    return file.empty() || file.find_first_of("\\/:*?\"<>|") != std::string::npos ? "" : file + kTaskEnding;
}

Descriptor open_folder(bool make) {
    const std::string path = machine_path(kTaskFolder);
    if (make) {
        make_folders(path);
    }
    return Descriptor(retry([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

// The name of a task's file in its own case; empty when there is none.
std::string find_task(const Descriptor& folder, const std::string& file) {
    return folder ? find_entry(folder.get(), file, KeyEntry::value).value_or("") : "";
}

std::string name_of(const std::string& file) {
    return file.substr(0, file.size() - (sizeof kTaskEnding - 1));
}

Status read_task(const Descriptor& folder, const std::string& file, TaskDefinition& task) {
    const Descriptor opened(
        retry([&] { return ::openat(folder.get(), file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    std::string text;
    if (!opened || !read_whole(opened.get(), text)) {
        return from_error(opened ? EIO : errno);
    }
    try {
        task = parse_task(text);
        return 0;
    } catch (const std::invalid_argument&) {
        return kCorruptTask;
    }
}

Status write_task(const Descriptor& folder, const std::string& file, const TaskDefinition& task) {
    return from_error(write_entry(folder.get(), file, task_text(name_of(file), task)));
}

}  // namespace

struct TaskScheduler::State {
    unsigned objects = 0;
    TaskDefinition definition;
    std::vector<std::string> tasks;  // file names
    std::string task;                // the one that the steps are on

    // One step that needs some objects and, unless it fails, gives another.
    Status reach(const char* step, unsigned needs, unsigned gives = 0) {
        if ((objects & needs) != needs) {
            return kNoObject;
        }
        const Status status = step_status(step);
        objects |= status >= 0 ? gives : 0U;
        return status;
    }

    template <class Value>
    Status put(const char* step, unsigned needs, Value& field, const Value& value) {
        const Status status = reach(step, needs);
        if (status >= 0) {
            field = value;
        }
        return status;
    }
};

TaskScheduler::TaskScheduler() : state_(new State) {}

TaskScheduler::~TaskScheduler() {
    delete state_;
}

Status TaskScheduler::enter() {
    return state_->reach("enter", 0);
}

Status TaskScheduler::create_service() {
    return state_->reach("create_service", 0, kService);
}

Status TaskScheduler::connect() {
    return state_->reach("connect", kService, kConnection);
}

Status TaskScheduler::get_root_folder() {
    return state_->reach("get_root_folder", kConnection, kFolder);
}

Status TaskScheduler::new_task() {
    const Status status = state_->reach("new_task", kConnection, kDefinition);
    state_->definition = {};
    return status;
}

Status TaskScheduler::get_registration_info() {
    return state_->reach("get_registration_info", kDefinition, kRegistration);
}

Status TaskScheduler::put_author(const wchar_t* author) {
    return state_->put("put_author", kRegistration, state_->definition.author, to_utf8(author));
}

Status TaskScheduler::get_principal() {
    return state_->reach("get_principal", kDefinition, kPrincipal);
}

Status TaskScheduler::put_run_level(std::int32_t level) {
    return state_->put("put_run_level", kPrincipal, state_->definition.run_level, level);
}

Status TaskScheduler::get_settings() {
    return state_->reach("get_settings", kDefinition, kSettings);
}

Status TaskScheduler::put_start_when_available(bool on) {
    return state_->put("put_start_when_available", kSettings, state_->definition.start_when_available, on);
}

Status TaskScheduler::put_execution_time_limit(const wchar_t* limit) {
    return state_->put("put_execution_time_limit", kSettings, state_->definition.execution_time_limit, to_utf8(limit));
}

Status TaskScheduler::put_disallow_start_if_on_batteries(bool on) {
    return state_->put("put_disallow_start_if_on_batteries", kSettings,
                       state_->definition.disallow_start_if_on_batteries, on);
}

Status TaskScheduler::get_triggers() {
    return state_->reach("get_triggers", kDefinition, kTriggers);
}

Status TaskScheduler::create_time_trigger() {
    return state_->reach("create_time_trigger", kTriggers, kTrigger);
}

Status TaskScheduler::query_time_trigger() {
    return state_->reach("query_time_trigger", kTrigger, kTimeTrigger);
}

Status TaskScheduler::put_trigger_id(const wchar_t* id) {
    return state_->put("put_trigger_id", kTimeTrigger, state_->definition.trigger_id, to_utf8(id));
}

Status TaskScheduler::put_start_boundary(const wchar_t* local_time) {
    return state_->put("put_start_boundary", kTimeTrigger, state_->definition.start_boundary, to_utf8(local_time));
}

Status TaskScheduler::get_repetition() {
    return state_->reach("get_repetition", kTimeTrigger, kRepetition);
}

Status TaskScheduler::put_repetition_interval(const wchar_t* interval) {
    return state_->put("put_repetition_interval", kRepetition, state_->definition.interval, to_utf8(interval));
}

Status TaskScheduler::get_actions() {
    return state_->reach("get_actions", kDefinition, kActions);
}

Status TaskScheduler::create_exec_action() {
    return state_->reach("create_exec_action", kActions, kAction);
}

Status TaskScheduler::query_exec_action() {
    return state_->reach("query_exec_action", kAction, kExecAction);
}

Status TaskScheduler::put_action_path(const wchar_t* path) {
    return state_->put("put_action_path", kExecAction, state_->definition.path, to_utf8(path));
}

Status TaskScheduler::put_action_arguments(const wchar_t* arguments) {
    return state_->put("put_action_arguments", kExecAction, state_->definition.arguments, to_utf8(arguments));
}

// The stand-in machine knows neither users nor permissions: it keeps the user's name and goes by no descriptor.
Status TaskScheduler::register_task(const wchar_t* name, std::int32_t flags, const wchar_t* user,
                                    std::int32_t logon_type, const wchar_t*) {
    const Status status = state_->reach("register_task", kFolder | kDefinition);
    if (status < 0) {
        return status;
    }
    TaskDefinition& task = state_->definition;
    task.user = to_utf8(user);
    task.logon_type = logon_type;
    if (const TaskFault fault = task_fault(task); fault != TaskFault::none) {
        return fault == TaskFault::missing ? kMissingNode : kInvalidValue;
    }
    const std::string file = file_of(name);
    if (file.empty()) {
        return kBadName;
    }
    if ((flags & kValidateOnly) != 0) {
        return 0;
    }
    const Descriptor folder = open_folder(true);
    if (!folder || !lock_key(folder.get())) {
        return from_error(errno);
    }
    const std::string existing = find_task(folder, file);
    if ((flags & (existing.empty() ? kCreate : kUpdate)) == 0) {
        return existing.empty() ? kNoTask : kTaken;
    }
    return write_task(folder, existing.empty() ? file : existing, task);
}

Status TaskScheduler::get_tasks() {
    const Status status = state_->reach("get_tasks", kFolder, kTasks);
    const Descriptor folder = open_folder(false);
    state_->tasks = folder ? key_entries(folder.get(), KeyEntry::value).value_or(std::vector<std::string>())
                           : std::vector<std::string>();
    std::erase_if(state_->tasks, [](const std::string& file) { return !file.ends_with(kTaskEnding); });
    std::sort(state_->tasks.begin(), state_->tasks.end());
    return status;
}

Status TaskScheduler::get_task_count(std::int32_t& count) {
    count = static_cast<std::int32_t>(state_->tasks.size());
    return state_->reach("get_task_count", kTasks);
}

Status TaskScheduler::get_task(std::int32_t index) {
    state_->objects &= ~kTask;
    const Status status = state_->reach("get_task", kTasks);
    if (status < 0 || index < 1 || static_cast<std::size_t>(index) > state_->tasks.size()) {
        return status < 0 ? status : kNoItem;
    }
    state_->task = state_->tasks[static_cast<std::size_t>(index) - 1];
    TaskDefinition task;
    const Status read = read_task(open_folder(false), state_->task, task);
    if (read >= 0) {
        state_->objects |= kTask;
    }
    return read;
}

Status TaskScheduler::get_task_name(std::wstring& name) {
    const Status status = state_->reach("get_task_name", kTask);
    if (status >= 0) {
        name = to_wide(name_of(state_->task)).value_or(L"");
    }
    return status;
}

Status TaskScheduler::get_task_state(std::int32_t& state) {
    const Status status = state_->reach("get_task_state", kTask);
    TaskDefinition task;
    const Status read = status >= 0 ? read_task(open_folder(false), state_->task, task) : status;
    state = task.enabled ? kStateReady : kStateDisabled;
    return read;
}

Status TaskScheduler::put_task_enabled(bool on) {
    const Status status = state_->reach("put_task_enabled", kTask);
    const Descriptor folder = open_folder(false);
    if (status < 0 || !folder || !lock_key(folder.get())) {
        return status < 0 ? status : kNoTask;
    }
    TaskDefinition task;
    const Status read = read_task(folder, state_->task, task);
    task.enabled = on;
    return read < 0 ? read : write_task(folder, state_->task, task);
}

Status TaskScheduler::delete_task(const wchar_t* name) {
    const Status status = state_->reach("delete_task", kFolder);
    const Descriptor folder = open_folder(false);
    if (status < 0 || !folder || !lock_key(folder.get())) {
        return status < 0 ? status : kNoTask;
    }
    const std::string file = file_of(name);
    const std::string existing = file.empty() ? "" : find_task(folder, file);
    return existing.empty() ? kNoTask : from_error(::unlinkat(folder.get(), existing.c_str(), 0) == 0 ? 0 : errno);
}

}  // namespace platform
