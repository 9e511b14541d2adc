// Task Scheduler by COM. Every call goes through Visit::did, which notes its step and status.
#include "platform/task_scheduler.h"

#include <windows.h>

#include <taskschd.h>

#include <cstdio>
#include <ctime>
#include <optional>

#include "platform/clock.h"
#include "platform/text.h"
#include "platform/windows/com.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

using Step = TaskStep;

OwnedText text_of(const std::string& text) {
    return make_text(to_wide(text).c_str());
}

VARIANT_BOOL to_system(bool on) {
    return on ? VARIANT_TRUE : VARIANT_FALSE;
}

// One visit to the scheduler: how far it came, and what it holds. Members are released from the last to the first, so
// COM is left at the end.
struct Visit {
    TaskResult result;
    Apartment apartment;
    ComPointer<ITaskService> service;
    ComPointer<ITaskFolder> folder;

    // Notes the step; false when it failed, and no further step is to be made.
    bool did(Step step, HRESULT status) {
        result.step = step;
        result.status = status;
        return SUCCEEDED(status);
    }

    bool get_root_folder() {
        const OwnedVariant none;
        return did(Step::enter, apartment.enter()) &&
               did(Step::create_service, ::CoCreateInstance(__uuidof(::TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                                                            IID_PPV_ARGS(service.put()))) &&
               did(Step::connect, service->Connect(none, none, none, none)) &&
               did(Step::get_root_folder, service->GetFolder(make_text(L"\\").get(), folder.put()));
    }
};

bool describe(Visit& visit, ITaskDefinition& definition, const ScheduledTask& task) {
    ComPointer<IRegistrationInfo> information;
    ComPointer<IPrincipal> principal;
    ComPointer<ITaskSettings> settings;
    return visit.did(Step::get_registration_info, definition.get_RegistrationInfo(information.put())) &&
           visit.did(Step::put_author, information->put_Author(text_of(task.author).get())) &&
           visit.did(Step::get_principal, definition.get_Principal(principal.put())) &&
           visit.did(Step::put_run_level, principal->put_RunLevel(static_cast<TASK_RUNLEVEL_TYPE>(task.run_level))) &&
           visit.did(Step::get_settings, definition.get_Settings(settings.put())) &&
           visit.did(Step::put_start_when_available,
                     settings->put_StartWhenAvailable(to_system(task.start_when_available))) &&
           visit.did(Step::put_execution_time_limit,
                     settings->put_ExecutionTimeLimit(text_of(task.execution_time_limit).get())) &&
           visit.did(Step::put_disallow_start_if_on_batteries,
                     settings->put_DisallowStartIfOnBatteries(to_system(task.disallow_start_if_on_batteries)));
}

bool set_trigger(Visit& visit, ITaskDefinition& definition, const ScheduledTask& task) {
    ComPointer<ITriggerCollection> triggers;
    ComPointer<ITrigger> trigger;
    ComPointer<ITimeTrigger> time_trigger;
    ComPointer<IRepetitionPattern> repetition;
    return visit.did(Step::get_triggers, definition.get_Triggers(triggers.put())) &&
           visit.did(Step::create_time_trigger, triggers->Create(TASK_TRIGGER_TIME, trigger.put())) &&
           visit.did(Step::query_time_trigger, trigger->QueryInterface(IID_PPV_ARGS(time_trigger.put()))) &&
           visit.did(Step::put_trigger_id, time_trigger->put_Id(text_of(task.trigger_id).get())) &&
           visit.did(Step::put_start_boundary, time_trigger->put_StartBoundary(text_of(task.start_boundary).get())) &&
           visit.did(Step::get_repetition, time_trigger->get_Repetition(repetition.put())) &&
           visit.did(Step::put_repetition_interval, repetition->put_Interval(text_of(task.interval).get()));
}

bool set_action(Visit& visit, ITaskDefinition& definition, const ScheduledTask& task) {
    ComPointer<IActionCollection> actions;
    ComPointer<IAction> action;
    ComPointer<IExecAction> exec_action;
    return visit.did(Step::get_actions, definition.get_Actions(actions.put())) &&
           visit.did(Step::create_exec_action, actions->Create(TASK_ACTION_EXEC, action.put())) &&
           visit.did(Step::query_exec_action, action->QueryInterface(IID_PPV_ARGS(exec_action.put()))) &&
           visit.did(Step::put_action_path, exec_action->put_Path(text_of(task.path).get())) &&
           visit.did(Step::put_action_arguments, exec_action->put_Arguments(text_of(task.arguments).get()));
}

// The step for TaskResult::items; nothing for a task of another name.
std::optional<Step> disable_if_named(IRegisteredTaskCollection& tasks, LONG index, const std::wstring& name) {
    OwnedVariant number;
    number.vt = VT_I4;
    number.lVal = index;
    ComPointer<IRegisteredTask> task;
    if (FAILED(tasks.get_Item(number, task.put()))) {
        return Step::get_task;
    }
    BSTR text = nullptr;
    const HRESULT named = task->get_Name(&text);
    const OwnedText owned(text);
    if (FAILED(named)) {
        return Step::get_task_name;
    }
    TASK_STATE state = TASK_STATE_UNKNOWN;
    task->get_State(&state);  // Kept: fetched, and not used
    if (std::wstring_view(text, ::SysStringLen(text)) != name) {
        return std::nullopt;
    }
    task->put_Enabled(VARIANT_FALSE);
    return Step::put_task_enabled;
}

// What stands between a tag's two forms in the task's XML.
std::string element(const std::string& xml, const std::string& tag) {
    const std::size_t start = xml.find("<" + tag + ">"), end = xml.find("</" + tag + ">");
    return start < end && end != std::string::npos ? xml.substr(start + tag.size() + 2, end - start - tag.size() - 2)
                                                   : "";
}

// Task Scheduler's local time; 0 for the zero that stands for no start.
std::int64_t seconds_of(DATE date) {
    SYSTEMTIME time{};
    if (date == 0 || !::VariantTimeToSystemTime(date, &time)) {
        return 0;
    }
    std::tm local{};
    local.tm_year = time.wYear - 1900;
    local.tm_mon = time.wMonth - 1;
    local.tm_mday = time.wDay;
    local.tm_hour = time.wHour;
    local.tm_min = time.wMinute;
    local.tm_sec = time.wSecond;
    return local_seconds(local);
}

}  // namespace

TaskResult register_task(const std::string& name, const ScheduledTask& task) {
    Visit visit;
    ComPointer<ITaskDefinition> definition;
    if (visit.get_root_folder() && visit.did(Step::new_task, visit.service->NewTask(0, definition.put())) &&
        describe(visit, *definition.get(), task) && set_trigger(visit, *definition.get(), task) &&
        set_action(visit, *definition.get(), task)) {
        const OwnedVariant no_password;
        ComPointer<IRegisteredTask> registered;
        visit.did(Step::register_task,
                  visit.folder->RegisterTaskDefinition(text_of(name).get(), definition.get(), TASK_CREATE_OR_UPDATE,
                                                       OwnedVariant(to_wide(task.user).c_str()), no_password,
                                                       static_cast<TASK_LOGON_TYPE>(task.logon_type), OwnedVariant(L""),
                                                       registered.put()));
    }
    return visit.result;
}

TaskResult disable_task(const std::string& name) {
    Visit visit;
    ComPointer<IRegisteredTaskCollection> tasks;
    LONG count = 0;
    if (visit.get_root_folder() && visit.did(Step::get_tasks, visit.folder->GetTasks(0, tasks.put())) &&
        visit.did(Step::get_task_count, tasks->get_Count(&count))) {
        for (LONG index = 1; index <= count; ++index) {
            if (const auto step = disable_if_named(*tasks.get(), index, to_wide(name))) {
                visit.result.items.push_back({static_cast<std::int32_t>(index), *step});
            }
        }
    }
    return visit.result;
}

TaskResult delete_task(const std::string& name) {
    Visit visit;
    if (visit.get_root_folder()) {
        visit.did(Step::delete_task, visit.folder->DeleteTask(text_of(name).get(), 0));
    }
    return visit.result;
}

TaskResult find_task(const std::string& name, std::int64_t, RegisteredTask& task) {
    Visit visit;
    ComPointer<IRegisteredTask> found;
    if (!visit.get_root_folder() ||
        !visit.did(Step::find_task, visit.folder->GetTask(text_of(name).get(), found.put()))) {
        return visit.result;
    }
    VARIANT_BOOL enabled = VARIANT_FALSE;
    found->get_Enabled(&enabled);
    DATE next = 0;
    found->get_NextRunTime(&next);
    BSTR text = nullptr;
    found->get_Xml(&text);
    const OwnedText owned(text);
    const std::string xml = to_utf8({text, ::SysStringLen(text)});
    int minutes = 0;
    std::sscanf(element(xml, "Interval").c_str(), "PT%dM", &minutes);
    task = {enabled != VARIANT_FALSE, seconds_of(next), minutes * 60, element(xml, "Command"),
            element(xml, "Arguments")};
    return visit.result;
}

}  // namespace platform
