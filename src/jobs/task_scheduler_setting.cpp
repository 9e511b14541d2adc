#include "jobs/task_scheduler_setting.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <random>

#include "common/log.h"
#include "platform/clock.h"
#include "platform/module.h"

namespace zorvalis {
namespace {

using platform::TaskScheduler;

constexpr std::int32_t kHighestRunLevel = 1;
constexpr std::int32_t kCreateOrUpdate = 6;
constexpr std::int32_t kGroupLogon = 4;

// One operation's steps: the first that fails is reported, and the rest are not done.
class Steps {
public:
    explicit Steps(std::wstring name) : name_(std::move(name)) {}

    // Whether the operation goes on; `words` name the step.
    bool Done(TaskScheduler::Status status, const wchar_t* words) {
        if (status >= 0) {
            return true;
        }
        ReportServiceEvent((name_ + words + std::to_wstring(status)).c_str(), kWarning);
        return false;
    }

private:
    std::wstring name_;
};

bool FillDefinition(TaskScheduler& task, Steps& steps, const std::wstring& repetitionInterval,
                    const std::wstring& executionTimeLimit, int startTomorrow) {
    return steps.Done(task.get_registration_info(), L"Cannot get registrationInfo:") &&
           steps.Done(task.put_author(L"ZorvTek Computer Inc."), L"Cannot put author :") &&
           steps.Done(task.get_principal(), L"Cannot get principal pointer:") &&
           steps.Done(task.put_run_level(kHighestRunLevel), L"Cannot put Runlevel:") &&
           steps.Done(task.get_settings(), L"Cannot get settings pointer:") &&
           steps.Done(task.put_start_when_available(false), L"Cannot put start when avaliable:") &&
           steps.Done(task.put_execution_time_limit(executionTimeLimit.c_str()), L"Cannot put execution time limit:") &&
           steps.Done(task.put_disallow_start_if_on_batteries(false), L"Cannot put disallowStartIfOnBatteries:") &&
           steps.Done(task.get_triggers(), L"Cannot get Triggers:") &&
           steps.Done(task.create_time_trigger(), L"Cannot Create pTriggerCollection :") &&
           steps.Done(task.query_time_trigger(), L"Cannot QueryInterface call failed for ITimeTrigger:") &&
           steps.Done(task.put_trigger_id(L"Zorvalis"), L"Cannot put trigger ID:") &&
           steps.Done(task.put_start_boundary(StartBoundary(startTomorrow).c_str()),
                      L"Cannot add start boundary to trigger:") &&
           steps.Done(task.get_repetition(), L"Cannot get repetition pattern:") &&
           steps.Done(task.put_repetition_interval(repetitionInterval.c_str()), L"Cannot put repetition interval:");
}

// The name is compared in length and in every character.
void DisableIfNamed(TaskScheduler& task, std::int32_t index, const std::wstring& taskName) {
    if (task.get_task(index) < 0) {
        LogMessage("[TaskSchedulerSetting] Cannot get the registered task item at index=" + std::to_string(index));
        return;
    }
    std::wstring name;
    if (task.get_task_name(name) < 0) {
        LogMessage("[TaskSchedulerSetting] Cannot get the registered task name:");
        return;
    }
    std::int32_t state = 0;
    task.get_task_state(state);  // asked for, and of no use to anybody
    if (name == taskName) {
        task.put_task_enabled(false);
        LogMessage("[TaskSchedulerSetting] task disable");
    }
}

}  // namespace

std::wstring StartBoundary(int startTomorrow) {
    const std::int64_t now = platform::now_seconds();
    std::tm local{};
    if (startTomorrow == 0) {
        platform::local_time(now / 60 * 60 + 300, local);
    } else {
        platform::local_time(now, local);
        ++local.tm_mday;  // a day of a clock change has no 24 hours
        local.tm_hour = 12;
        platform::local_seconds(local);
        std::mt19937 generator(std::random_device{}());  // so that not all machines start in the same minute
        local.tm_hour = 0;
        local.tm_min = std::uniform_int_distribution<int>(0, 59)(generator);
        local.tm_sec = 0;
    }
    std::array<wchar_t, 32> text{};
    std::wcsftime(text.data(), text.size(), L"%Y-%m-%dT%H:%M:%S", &local);
    return text.data();
}

void TaskSchedulerSetting::SetSpecificTimeTriggerTmer(std::wstring taskName, std::wstring repetitionInterval,
                                                      std::wstring executionTimeLimit, std::wstring arguments,
                                                      int startTomorrow) {
    const auto visit = [&] {
        TaskScheduler task;
        Steps steps(L" SetSpecificTimeTriggerTmer ");
        const TaskScheduler::Status entered = task.enter();
        if (!steps.Done(entered, L"CoInitializeEx failed:. Error code = ")) {
            std::printf("SetSpecificTimeTriggerTmer CoInitializeEx failed:. Error code = 0x%x",
                        static_cast<unsigned>(entered));
            return false;
        }
        std::array<wchar_t, 260> path{};
        platform::module_file_name(path.data(), static_cast<int>(path.size()));
        return steps.Done(task.create_service(), L"Failed to create an instance of ITaskService:") &&
               steps.Done(task.connect(), L"ITaskService::Connect failed:") &&
               steps.Done(task.get_root_folder(), L"Cannot get Root folder pointer:") &&
               steps.Done(task.new_task(), L"Failed to CoCreate an instance of the TaskService class:") &&
               FillDefinition(task, steps, repetitionInterval, executionTimeLimit, startTomorrow) &&
               SetAction(task, path.data(), arguments) == 0 &&
               steps.Done(task.register_task(taskName.c_str(), kCreateOrUpdate, L"SYSTEM", kGroupLogon, L""),
                          L"Error saving the Task:");
    };
    if (visit()) {  // everything is released by now
        LogMessage("SetSpecificTimeTriggerTmer OK >>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>");
    }
}

int TaskSchedulerSetting::SetAction(platform::TaskScheduler& definition, std::wstring path, std::wstring arguments) {
    Steps steps(L"SetAction ");
    return steps.Done(definition.get_actions(), L"Cannot get Task collection pointer:") &&
                   steps.Done(definition.create_exec_action(), L"Cannot create the action:") &&
                   steps.Done(definition.query_exec_action(), L"call failed for IExecAction:") &&
                   steps.Done(definition.put_action_path(path.c_str()), L"Cannot put action path:") &&
                   steps.Done(definition.put_action_arguments(arguments.c_str()),
                              L"Cannot set arguments of executable:")
               ? 0
               : 1;
}

void TaskSchedulerSetting::disableTask(std::wstring taskName) {
    TaskScheduler task;
    Steps steps(L"disableTask ");
    std::int32_t count = 0;
    if (!steps.Done(task.enter(), L"CoInitializeEx failed:. Error code = ") ||
        !steps.Done(task.create_service(), L"CoCreateInstance failed:. Error code = ") ||
        !steps.Done(task.connect(), L"connect task service failed:. Error code = ") ||
        !steps.Done(task.get_root_folder(), L"get root folder failed:. Error code = ") ||
        !steps.Done(task.get_tasks(), L"get tasks failed:. Error code = ") ||
        !steps.Done(task.get_task_count(count), L"get count failed:. Error code = ")) {
        return;
    }
    for (std::int32_t index = 1; index <= count; ++index) {
        DisableIfNamed(task, index, taskName);
    }
}

void TaskSchedulerSetting::DeleteTaskSchedulerTriggerTmer(std::wstring taskName) {
    TaskScheduler task;
    Steps steps(L"DeleteTaskSchedulerTriggerTmer ");
    if (steps.Done(task.enter(), L"CoInitializeEx failed:") &&
        steps.Done(task.create_service(), L"Failed to create an instance of ITaskServic:") &&
        steps.Done(task.connect(), L"ITaskService::Connect failed:") &&
        steps.Done(task.get_root_folder(), L"Cannot get Root Folder pointer:")) {
        task.delete_task(taskName.c_str());  // whatever comes of it
    }
}

}  // namespace zorvalis
