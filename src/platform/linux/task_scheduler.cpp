// A task is a file in tasks/ (task_file.h), handled like a registry value. The steps of COM exist only so that tests
// can let one fail.
#include "platform/task_scheduler.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <vector>

#include "platform/linux/machine_path.h"
#include "platform/linux/registry_key.h"
#include "platform/linux/whole_file.h"
#include "platform/linux/wide.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/descriptor.h"
#include "platform/stand_in/step_failure.h"
#include "platform/stand_in/task_file.h"

namespace platform {
namespace {

using Status = std::int32_t;
using Step = TaskStep;

constexpr Status status_of(std::uint32_t number) {
    return static_cast<Status>(number);
}

constexpr Status kBadName = status_of(0x8007007B);       // ERROR_INVALID_NAME
constexpr Status kInvalidValue = status_of(0x80041318);  // SCHED_E_INVALIDVALUE
constexpr Status kMissingNode = status_of(0x80041319);   // SCHED_E_MISSINGNODE
constexpr Status kCorruptTask = status_of(0x80041321);   // SCHED_E_INVALID_TASK_HASH

// An errno as the HRESULT of its Windows error.
Status from_error(int error) {
    return error == 0 ? 0 : status_of(0x80070000U | windows_error(error));
}

// Empty for a name that no task of the root folder can have.
std::string file_of(const std::string& name) {
    std::string file = value_file(to_wide(name).value_or(L""));
    return file.empty() || file.find_first_of("\\/:*?\"<>|") != std::string::npos ? "" : file + kTaskEnding;
}

Descriptor open_folder(bool make) {
    const std::string path = machine_path(kTaskFolder);
    if (make) {
        make_folders(path);
    }
    return Descriptor(retry([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

// The name of a task's file as the folder has it, found in any case; empty when there is none.
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

// Makes the steps of an act; only a test lets one fail. The caller then does the act itself and sets the status of the
// last step.
TaskResult pass(Step first, Step last) {
    TaskResult result;
    pass_steps(Step::enter, Step::get_root_folder, result);
    pass_steps(first, last, result);
    return result;
}

// The user's name is stored and not checked: the stand-in machine has no users and no permissions.
Status store_task(const std::string& name, const ScheduledTask& task) {
    if (const TaskFault fault = task_fault(task); fault != TaskFault::none) {
        return fault == TaskFault::missing ? kMissingNode : kInvalidValue;
    }
    const std::string file = file_of(name);
    if (file.empty()) {
        return kBadName;
    }
    const Descriptor folder = open_folder(true);
    if (!folder || !lock_key(folder.get())) {
        return from_error(errno);
    }
    const std::string existing = find_task(folder, file);
    return write_task(folder, existing.empty() ? file : existing, {task});
}

Status remove_task(const std::string& name) {
    const Descriptor folder = open_folder(false);
    if (!folder || !lock_key(folder.get())) {
        return kNoSuchTask;
    }
    const std::string file = file_of(name);
    const std::string existing = file.empty() ? "" : find_task(folder, file);
    return existing.empty() ? kNoSuchTask : from_error(::unlinkat(folder.get(), existing.c_str(), 0) == 0 ? 0 : errno);
}

// The step for TaskResult::items; nothing for a task of another name.
std::optional<Step> disable_if_named(const Descriptor& folder, const std::string& file, const std::string& name) {
    TaskDefinition task;
    if (step_status(Step::get_task) < 0 || read_task(folder, file, task) < 0) {
        return Step::get_task;
    }
    if (step_status(Step::get_task_name) < 0) {
        return Step::get_task_name;
    }
    if (name_of(file) != name) {
        return std::nullopt;
    }
    if (step_status(Step::put_task_enabled) >= 0 && lock_key(folder.get()) && read_task(folder, file, task) >= 0) {
        task.enabled = false;
        write_task(folder, file, task);
    }
    return Step::put_task_enabled;
}

}  // namespace

TaskResult register_task(const std::string& name, const ScheduledTask& task) {
    TaskResult result = pass(Step::new_task, Step::register_task);
    if (result.status >= 0) {
        result.status = store_task(name, task);
    }
    return result;
}

TaskResult disable_task(const std::string& name) {
    TaskResult result = pass(Step::get_tasks, Step::get_task_count);
    const Descriptor folder = open_folder(false);
    if (result.status < 0 || !folder) {
        return result;
    }
    auto files = key_entries(folder.get()).value_or(KeyEntries()).values;
    std::erase_if(files, [](const std::string& file) { return !file.ends_with(kTaskEnding); });
    std::sort(files.begin(), files.end());
    for (std::int32_t index = 1; const std::string& file : files) {
        if (const auto step = disable_if_named(folder, file, name)) {
            result.items.push_back({index, *step});
        }
        ++index;
    }
    return result;
}

TaskResult delete_task(const std::string& name) {
    TaskResult result = pass(Step::delete_task, Step::delete_task);
    if (result.status >= 0) {
        result.status = remove_task(name);
    }
    return result;
}

TaskResult find_task(const std::string& name, std::int64_t now, RegisteredTask& task) {
    TaskResult result = pass(Step::find_task, Step::find_task);
    const Descriptor folder = open_folder(false);
    const Status missing = errno == ENOENT ? kNoSuchTask : from_error(errno);
    const std::string file = find_task(folder, file_of(name));
    TaskDefinition found;
    if (result.status >= 0) {
        result.status = !folder ? missing : file.empty() ? kNoSuchTask : read_task(folder, file, found);
    }
    task = {found.enabled, next_start(found, now).value_or(0), task_duration(found.interval).value_or(0), found.path,
            found.arguments};
    return result;
}

}  // namespace platform
