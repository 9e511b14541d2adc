#include "task_view.h"

#include <windows.h>

#include <taskschd.h>

#include "platform/windows/com.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

using platform::ComPointer;

// One visit to a task: the first call that fails is noted, and those behind it are not made.
struct Visit {
    platform::Apartment apartment;
    ComPointer<ITaskService> service;
    ComPointer<ITaskFolder> folder;
    ComPointer<IRegisteredTask> task;
    std::map<std::string, std::string> seen;
    HRESULT status = S_OK;

    explicit Visit(const std::string& name) {
        const platform::OwnedVariant none;
        did(apartment.enter()) &&
            did(::CoCreateInstance(__uuidof(::TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                                   IID_PPV_ARGS(service.put()))) &&
            did(service->Connect(none, none, none, none)) &&
            did(service->GetFolder(platform::make_text(L"\\").get(), folder.put())) &&
            did(folder->GetTask(platform::make_text(platform::to_wide(name).c_str()).get(), task.put()));
    }

    bool did(HRESULT result) {
        status = FAILED(status) ? status : result;
        return SUCCEEDED(status);
    }

    template <class Object>
    void text(const char* name, Object* object, HRESULT (STDMETHODCALLTYPE Object::*get)(BSTR*)) {
        BSTR value = nullptr;
        if (SUCCEEDED(status) && did((object->*get)(&value))) {
            const platform::OwnedText owned(value);
            seen[name] = platform::to_utf8({value, ::SysStringLen(value)});
        }
    }

    template <class Object, class Number>
    void number(const char* name, Object* object, HRESULT (STDMETHODCALLTYPE Object::*get)(Number*)) {
        Number value{};
        if (SUCCEEDED(status) && did((object->*get)(&value))) {
            seen[name] = std::to_string(value);
        }
    }
};

void See(Visit& visit) {
    ComPointer<ITaskDefinition> definition;
    ComPointer<IRegistrationInfo> information;
    ComPointer<IPrincipal> principal;
    ComPointer<ITaskSettings> settings;
    ComPointer<ITriggerCollection> triggers;
    ComPointer<ITrigger> trigger;
    ComPointer<IRepetitionPattern> repetition;
    ComPointer<IActionCollection> actions;
    ComPointer<IAction> action;
    ComPointer<IExecAction> program;
    if (!(visit.did(visit.task->get_Definition(definition.put())) &&
          visit.did(definition->get_RegistrationInfo(information.put())) &&
          visit.did(definition->get_Principal(principal.put())) &&
          visit.did(definition->get_Settings(settings.put())) && visit.did(definition->get_Triggers(triggers.put())) &&
          visit.did(triggers->get_Item(1, trigger.put())) && visit.did(trigger->get_Repetition(repetition.put())) &&
          visit.did(definition->get_Actions(actions.put())) && visit.did(actions->get_Item(1, action.put())) &&
          visit.did(action->QueryInterface(IID_PPV_ARGS(program.put()))))) {
        return;
    }
    visit.number("Enabled", visit.task.get(), &IRegisteredTask::get_Enabled);
    visit.number("LastTaskResult", visit.task.get(), &IRegisteredTask::get_LastTaskResult);
    visit.text("Author", information.get(), &IRegistrationInfo::get_Author);
    visit.text("UserId", principal.get(), &IPrincipal::get_UserId);
    visit.text("GroupId", principal.get(), &IPrincipal::get_GroupId);
    visit.number("LogonType", principal.get(), &IPrincipal::get_LogonType);
    visit.number("RunLevel", principal.get(), &IPrincipal::get_RunLevel);
    visit.number("StartWhenAvailable", settings.get(), &ITaskSettings::get_StartWhenAvailable);
    visit.text("ExecutionTimeLimit", settings.get(), &ITaskSettings::get_ExecutionTimeLimit);
    visit.number("DisallowStartIfOnBatteries", settings.get(), &ITaskSettings::get_DisallowStartIfOnBatteries);
    visit.number("Triggers", triggers.get(), &ITriggerCollection::get_Count);
    visit.number("Type", trigger.get(), &ITrigger::get_Type);
    visit.text("Id", trigger.get(), &ITrigger::get_Id);
    visit.text("StartBoundary", trigger.get(), &ITrigger::get_StartBoundary);
    visit.text("Interval", repetition.get(), &IRepetitionPattern::get_Interval);
    visit.number("Actions", actions.get(), &IActionCollection::get_Count);
    visit.text("Path", program.get(), &IExecAction::get_Path);
    visit.text("Arguments", program.get(), &IExecAction::get_Arguments);
}

}  // namespace

std::map<std::string, std::string> ViewTask(const std::string& name, long& status) {
    Visit visit(name);
    if (SUCCEEDED(visit.status)) {
        See(visit);
    }
    status = visit.status;
    return FAILED(visit.status) ? std::map<std::string, std::string>() : visit.seen;
}

long RunTask(const std::string& name) {
    Visit visit(name);
    ComPointer<IRunningTask> running;
    const platform::OwnedVariant none;
    if (SUCCEEDED(visit.status)) {
        visit.did(visit.task->Run(none, running.put()));
    }
    return visit.status;
}

}  // namespace zorvalis::acceptance
