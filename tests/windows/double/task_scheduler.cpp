// The task scheduler's double. It knows no schedule: every call and put is a line of the journal, and tasks.txt holds
// what is registered ("name 1" for an enabled task, a line each), for all processes of a test.
#define CINTERFACE
#include <windows.h>

#include <oleauto.h>
#include <taskschd.h>

#include <sstream>
#include <utility>
#include <vector>

#include "com_object.h"

namespace doubles {
namespace {

struct Task {
    std::string name;
    int enabled = 1;
};

std::vector<Task> load_tasks() {
    std::istringstream lines(read_file(L"tasks.txt"));
    std::vector<Task> tasks;
    for (Task task; lines >> task.name >> task.enabled;) {
        tasks.push_back(task);
    }
    return tasks;
}

// Without the task of that name; with `task` at the end when it is one.
void replace_task(const std::string& name, const Task* task) {
    std::string lines;
    for (const Task& each : load_tasks()) {
        if (each.name != name) {
            lines += each.name + number(each.enabled, " %lld\n");
        }
    }
    if (task != nullptr) {
        lines += task->name + number(task->enabled, " %lld\n");
    }
    write_file(L"tasks.txt", lines);
}

auto* make_registration_info() {
    return make<Object<IRegistrationInfo>>("IRegistrationInfo", IID_IRegistrationInfo, [](auto& table) {
        table.put_Author = [](auto*, BSTR author) { return step("IRegistrationInfo.put_Author", text(author)); };
    });
}

auto* make_principal() {
    return make<Object<IPrincipal>>("IPrincipal", IID_IPrincipal, [](auto& table) {
        table.put_RunLevel = [](auto*, TASK_RUNLEVEL_TYPE level) {
            return step("IPrincipal.put_RunLevel", number(level));
        };
    });
}

auto* make_settings() {
    return make<Object<ITaskSettings>>("ITaskSettings", IID_ITaskSettings, [](auto& table) {
        table.put_StartWhenAvailable = [](auto*, VARIANT_BOOL on) {
            return step("ITaskSettings.put_StartWhenAvailable", number(on));
        };
        table.put_ExecutionTimeLimit = [](auto*, BSTR limit) {
            return step("ITaskSettings.put_ExecutionTimeLimit", text(limit));
        };
        table.put_DisallowStartIfOnBatteries = [](auto*, VARIANT_BOOL on) {
            return step("ITaskSettings.put_DisallowStartIfOnBatteries", number(on));
        };
    });
}

auto* make_repetition() {
    return make<Object<IRepetitionPattern>>("IRepetitionPattern", IID_IRepetitionPattern, [](auto& table) {
        table.put_Interval = [](auto*, BSTR interval) {
            return step("IRepetitionPattern.put_Interval", text(interval));
        };
    });
}

auto* make_trigger() {
    const auto fill = [](auto& table) {
        table.put_Id = [](auto*, BSTR id) { return step("ITimeTrigger.put_Id", text(id)); };
        table.put_StartBoundary = [](auto*, BSTR start) { return step("ITimeTrigger.put_StartBoundary", text(start)); };
        table.get_Repetition = [](auto*, IRepetitionPattern** repetition) {
            return give(repetition, make_repetition, "ITimeTrigger.get_Repetition");
        };
    };
    return make<Object<ITimeTrigger>>("ITrigger", IID_ITrigger, fill, &IID_ITimeTrigger);
}

auto* make_triggers() {
    return make<Object<ITriggerCollection>>("ITriggerCollection", IID_ITriggerCollection, [](auto& table) {
        table.Create = [](auto*, TASK_TRIGGER_TYPE2 type, ITrigger** trigger) {
            return give(trigger, make_trigger, "ITriggerCollection.Create", number(type));
        };
    });
}

auto* make_action() {
    const auto fill = [](auto& table) {
        table.put_Path = [](auto*, BSTR path) { return step("IExecAction.put_Path", text(path)); };
        table.put_Arguments = [](auto*, BSTR arguments) { return step("IExecAction.put_Arguments", text(arguments)); };
    };
    return make<Object<IExecAction>>("IAction", IID_IAction, fill, &IID_IExecAction);
}

auto* make_actions() {
    return make<Object<IActionCollection>>("IActionCollection", IID_IActionCollection, [](auto& table) {
        table.Create = [](auto*, TASK_ACTION_TYPE type, IAction** action) {
            return give(action, make_action, "IActionCollection.Create", number(type));
        };
    });
}

auto* make_definition() {
    return make<Object<ITaskDefinition>>("ITaskDefinition", IID_ITaskDefinition, [](auto& table) {
        table.get_RegistrationInfo = [](auto*, IRegistrationInfo** information) {
            return give(information, make_registration_info, "ITaskDefinition.get_RegistrationInfo");
        };
        table.get_Principal = [](auto*, IPrincipal** principal) {
            return give(principal, make_principal, "ITaskDefinition.get_Principal");
        };
        table.get_Settings = [](auto*, ITaskSettings** settings) {
            return give(settings, make_settings, "ITaskDefinition.get_Settings");
        };
        table.get_Triggers = [](auto*, ITriggerCollection** triggers) {
            return give(triggers, make_triggers, "ITaskDefinition.get_Triggers");
        };
        table.get_Actions = [](auto*, IActionCollection** actions) {
            return give(actions, make_actions, "ITaskDefinition.get_Actions");
        };
    });
}

struct RegisteredTask : Object<IRegisteredTask> {
    Task task;
};

RegisteredTask& registered(IRegisteredTask* self) {
    return *static_cast<RegisteredTask*>(self);
}

RegisteredTask* make_registered_task(const Task& task) {
    auto* const made = make<RegisteredTask>("IRegisteredTask", IID_IRegisteredTask, [](auto& table) {
        table.get_Name = [](IRegisteredTask* self, BSTR* name) {
            const HRESULT status = step("IRegisteredTask.get_Name");
            const std::string& narrow = registered(self).task.name;
            *name = status == S_OK ? ::SysAllocString(std::wstring(narrow.begin(), narrow.end()).c_str()) : nullptr;
            return status;
        };
        table.get_State = [](IRegisteredTask* self, TASK_STATE* state) {
            *state = registered(self).task.enabled != 0 ? TASK_STATE_READY : TASK_STATE_DISABLED;
            return step("IRegisteredTask.get_State");
        };
        table.put_Enabled = [](IRegisteredTask* self, VARIANT_BOOL on) {
            Task& changed = registered(self).task;
            const HRESULT status = step("IRegisteredTask.put_Enabled", changed.name + number(on, " %lld"));
            if (status == S_OK) {
                changed.enabled = on != VARIANT_FALSE ? 1 : 0;
                replace_task(changed.name, &changed);
            }
            return status;
        };
    });
    made->task = task;
    return made;
}

struct TaskCollection : Object<IRegisteredTaskCollection> {
    std::vector<Task> tasks = load_tasks();
};

auto* make_task_collection() {
    return make<TaskCollection>("IRegisteredTaskCollection", IID_IRegisteredTaskCollection, [](auto& table) {
        table.get_Count = [](IRegisteredTaskCollection* self, LONG* count) {
            *count = static_cast<LONG>(static_cast<TaskCollection*>(self)->tasks.size());
            return step("IRegisteredTaskCollection.get_Count");
        };
        table.get_Item = [](IRegisteredTaskCollection* self, VARIANT index, IRegisteredTask** task) {
            const std::vector<Task>& tasks = static_cast<TaskCollection*>(self)->tasks;
            *task = nullptr;
            const HRESULT status = step("IRegisteredTaskCollection.get_Item", text(index));
            if (status != S_OK || index.vt != VT_I4 || index.lVal < 1 || index.lVal > static_cast<LONG>(tasks.size())) {
                return status != S_OK ? status : E_INVALIDARG;
            }
            *task = make_registered_task(tasks[static_cast<std::size_t>(index.lVal - 1)]);
            return S_OK;
        };
    });
}

HRESULT register_task(ITaskFolder*, BSTR name, ITaskDefinition*, LONG flags, VARIANT user, VARIANT password,
                      TASK_LOGON_TYPE logon, VARIANT security, IRegisteredTask** result) {
    const Task task{text(name)};
    const auto maker = [&task] {
        replace_task(task.name, &task);
        return make_registered_task(task);
    };
    return give(result, maker, "ITaskFolder.RegisterTaskDefinition",
                task.name + " " + number(flags) + " " + text(user) + " " + text(password) + " " + number(logon) + " " +
                    text(security));
}

auto* make_folder() {
    return make<Object<ITaskFolder>>("ITaskFolder", IID_ITaskFolder, [](auto& table) {
        table.RegisterTaskDefinition = register_task;
        table.GetTasks = [](auto*, LONG flags, IRegisteredTaskCollection** tasks) {
            return give(tasks, make_task_collection, "ITaskFolder.GetTasks", number(flags));
        };
        table.DeleteTask = [](auto*, BSTR name, LONG flags) {
            replace_task(text(name), nullptr);
            return step("ITaskFolder.DeleteTask", text(name) + " " + number(flags));
        };
    });
}

}  // namespace

IUnknown* make_task_service() {
    return reinterpret_cast<IUnknown*>(make<Object<ITaskService>>("ITaskService", IID_ITaskService, [](auto& table) {
        table.Connect = [](auto*, VARIANT server, VARIANT user, VARIANT domain, VARIANT password) {
            return step("ITaskService.Connect",
                        text(server) + " " + text(user) + " " + text(domain) + " " + text(password));
        };
        table.GetFolder = [](auto*, BSTR path, ITaskFolder** folder) {
            return give(folder, make_folder, "ITaskService.GetFolder", text(path));
        };
        table.NewTask = [](auto*, DWORD flags, ITaskDefinition** definition) {
            return give(definition, make_definition, "ITaskService.NewTask", number(flags));
        };
    }));
}

}  // namespace doubles
