#include "jobs/task_scheduler_setting.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <random>

#include "common/log.h"
#include "common/wide_to_utf8.h"
#include "platform/clock.h"
#include "platform/module.h"
#include "platform/task_scheduler.h"

namespace zorvalis {
namespace {

using Step = platform::TaskStep;

constexpr wchar_t kSet[] = L" SetSpecificTimeTriggerTmer ";
constexpr wchar_t kSetAction[] = L"SetAction ";
constexpr wchar_t kDisable[] = L"disableTask ";
constexpr wchar_t kDelete[] = L"DeleteTaskSchedulerTriggerTmer ";

// What the event log says of a step that failed, before its status. A step without a row fails without a word.
constexpr struct {
    const wchar_t* operation;
    Step step;
    const wchar_t* words;
} kFailures[] = {
    {kSet, Step::enter, L"CoInitializeEx failed:. Error code = "},
    {kSet, Step::create_service, L"Failed to create an instance of ITaskService:"},
    {kSet, Step::connect, L"ITaskService::Connect failed:"},
    {kSet, Step::get_root_folder, L"Cannot get Root folder pointer:"},
    {kSet, Step::new_task, L"Failed to CoCreate an instance of the TaskService class:"},
    {kSet, Step::get_registration_info, L"Cannot get registrationInfo:"},
    {kSet, Step::put_author, L"Cannot put author :"},
    {kSet, Step::get_principal, L"Cannot get principal pointer:"},
    {kSet, Step::put_run_level, L"Cannot put Runlevel:"},
    {kSet, Step::get_settings, L"Cannot get settings pointer:"},
    {kSet, Step::put_start_when_available, L"Cannot put start when avaliable:"},
    {kSet, Step::put_execution_time_limit, L"Cannot put execution time limit:"},
    {kSet, Step::put_disallow_start_if_on_batteries, L"Cannot put disallowStartIfOnBatteries:"},
    {kSet, Step::get_triggers, L"Cannot get Triggers:"},
    {kSet, Step::create_time_trigger, L"Cannot Create pTriggerCollection :"},
    {kSet, Step::query_time_trigger, L"Cannot QueryInterface call failed for ITimeTrigger:"},
    {kSet, Step::put_trigger_id, L"Cannot put trigger ID:"},
    {kSet, Step::put_start_boundary, L"Cannot add start boundary to trigger:"},
    {kSet, Step::get_repetition, L"Cannot get repetition pattern:"},
    {kSet, Step::put_repetition_interval, L"Cannot put repetition interval:"},
    {kSetAction, Step::get_actions, L"Cannot get Task collection pointer:"},
    {kSetAction, Step::create_exec_action, L"Cannot create the action:"},
    {kSetAction, Step::query_exec_action, L"call failed for IExecAction:"},
    {kSetAction, Step::put_action_path, L"Cannot put action path:"},
    {kSetAction, Step::put_action_arguments, L"Cannot set arguments of executable:"},
    {kSet, Step::register_task, L"Error saving the Task:"},
    {kDisable, Step::enter, L"CoInitializeEx failed:. Error code = "},
    {kDisable, Step::create_service, L"CoCreateInstance failed:. Error code = "},
    {kDisable, Step::connect, L"connect task service failed:. Error code = "},
    {kDisable, Step::get_root_folder, L"get root folder failed:. Error code = "},
    {kDisable, Step::get_tasks, L"get tasks failed:. Error code = "},
    {kDisable, Step::get_task_count, L"get count failed:. Error code = "},
    {kDelete, Step::enter, L"CoInitializeEx failed:"},
    {kDelete, Step::create_service, L"Failed to create an instance of ITaskServic:"},
    {kDelete, Step::connect, L"ITaskService::Connect failed:"},
    {kDelete, Step::get_root_folder, L"Cannot get Root Folder pointer:"},
};

// Whether every step of the operation was done; writes down the one that failed.
bool Done(const wchar_t* operation, const platform::TaskResult& result) {
    for (const auto& [owner, step, words] : kFailures) {
        if (result.status < 0 && step == result.step && (owner == operation || owner == kSetAction)) {
            ReportServiceEvent((owner + (words + std::to_wstring(result.status))).c_str(), kWarning);
        }
    }
    return result.status >= 0;
}

}  // namespace

std::wstring StartBoundary(int startTomorrow) {
    const std::int64_t now = platform::now_seconds();
    std::tm local{};
    if (startTomorrow == 0) {
        platform::local_time(SoonStart(now), local);
    } else {
        platform::local_time(now, local);
        ++local.tm_mday;  // a day of a clock change has no 24 hours
        local.tm_hour = 12;
        platform::local_seconds(local);
        std::mt19937 generator(std::random_device{}());  // so that not all machines start in the same minute
        local.tm_hour = 0;
        local.tm_min = std::uniform_int_distribution<int>(0, kSpreadMinutes - 1)(generator);
        local.tm_sec = 0;
    }
    std::array<wchar_t, 32> text{};
    std::wcsftime(text.data(), text.size(), L"%Y-%m-%dT%H:%M:%S", &local);
    return text.data();
}

void TaskSchedulerSetting::SetSpecificTimeTriggerTmer(std::wstring taskName, std::wstring repetitionInterval,
                                                      std::wstring executionTimeLimit, std::wstring arguments,
                                                      int startTomorrow) {
    std::array<wchar_t, 260> path{};
    platform::module_file_name(path.data(), static_cast<int>(path.size()));
    const platform::TaskResult result =
        platform::register_task(WideToUtf8(taskName), {.author = "ZorvTek Computer Inc.",
                                                       .run_level = 1,  // the highest
                                                       .start_when_available = false,
                                                       .execution_time_limit = WideToUtf8(executionTimeLimit),
                                                       .disallow_start_if_on_batteries = false,
                                                       .trigger_id = "Zorvalis",
                                                       .start_boundary = WideToUtf8(StartBoundary(startTomorrow)),
                                                       .interval = WideToUtf8(repetitionInterval),
                                                       .path = WideToUtf8(path.data()),
                                                       .arguments = WideToUtf8(arguments),
                                                       .user = "SYSTEM",
                                                       .logon_type = 4});  // a group
    if (Done(kSet, result)) {
        LogMessage("SetSpecificTimeTriggerTmer OK >>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>");
    } else if (result.step == Step::enter) {
        std::printf("SetSpecificTimeTriggerTmer CoInitializeEx failed:. Error code = 0x%x",
                    static_cast<unsigned>(result.status));
    }
}

void TaskSchedulerSetting::disableTask(std::wstring taskName) {
    const platform::TaskResult result = platform::disable_task(WideToUtf8(taskName));
    Done(kDisable, result);
    for (const auto& [index, step] : result.items) {
        LogMessage(step == Step::get_task
                       ? "[TaskSchedulerSetting] Cannot get the registered task item at index=" + std::to_string(index)
                   : step == Step::get_task_name ? "[TaskSchedulerSetting] Cannot get the registered task name:"
                                                 : "[TaskSchedulerSetting] task disable");
    }
}

void TaskSchedulerSetting::DeleteTaskSchedulerTriggerTmer(std::wstring taskName) {
    Done(kDelete, platform::delete_task(WideToUtf8(taskName)));
}

}  // namespace zorvalis
