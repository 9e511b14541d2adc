// The task scheduler's double. It keeps nothing: every call and put is a line of the journal, and the tasks that it has
// are always the same.
#define CINTERFACE
#include <windows.h>

#include <oleauto.h>
#include <taskschd.h>

#include "com_object.h"
#include "control_data.h"

namespace doubles {
namespace {

auto* make_registration_info() {
    return make<Object<IRegistrationInfo>>("IRegistrationInfo", IID_IRegistrationInfo,
                                           [](auto& table) { RECORD(put_Author); });
}

auto* make_principal() {
    return make<Object<IPrincipal>>("IPrincipal", IID_IPrincipal, [](auto& table) { RECORD(put_RunLevel); });
}

auto* make_settings() {
    return make<Object<ITaskSettings>>("ITaskSettings", IID_ITaskSettings, [](auto& table) {
        RECORD(put_StartWhenAvailable);
        RECORD(put_ExecutionTimeLimit);
        RECORD(put_DisallowStartIfOnBatteries);
    });
}

auto* make_repetition() {
    return make<Object<IRepetitionPattern>>("IRepetitionPattern", IID_IRepetitionPattern,
                                            [](auto& table) { RECORD(put_Interval); });
}

auto* make_trigger() {
    const auto fill = [](auto& table) {
        RECORD(put_Id);
        RECORD(put_StartBoundary);
        RECORD(get_Repetition, make_repetition);
    };
    return make<Object<ITimeTrigger>>("ITrigger", IID_ITrigger, fill, &IID_ITimeTrigger);
}

auto* make_triggers() {
    return make<Object<ITriggerCollection>>("ITriggerCollection", IID_ITriggerCollection,
                                            [](auto& table) { RECORD(Create, make_trigger); });
}

auto* make_action() {
    const auto fill = [](auto& table) {
        RECORD(put_Path);
        RECORD(put_Arguments);
    };
    return make<Object<IExecAction>>("IAction", IID_IAction, fill, &IID_IExecAction);
}

auto* make_actions() {
    return make<Object<IActionCollection>>("IActionCollection", IID_IActionCollection,
                                           [](auto& table) { RECORD(Create, make_action); });
}

auto* make_definition() {
    return make<Object<ITaskDefinition>>("ITaskDefinition", IID_ITaskDefinition, [](auto& table) {
        RECORD(get_RegistrationInfo, make_registration_info);
        RECORD(get_Principal, make_principal);
        RECORD(get_Settings, make_settings);
        RECORD(get_Triggers, make_triggers);
        RECORD(get_Actions, make_actions);
    });
}

struct RegisteredTask : Object<IRegisteredTask> {
    const wchar_t* task = kTask;
};

auto* make_registered_task() {
    return make<RegisteredTask>("IRegisteredTask", IID_IRegisteredTask, [](auto& table) {
        table.get_Name = [](IRegisteredTask* self, BSTR* name) {
            const HRESULT status = step("IRegisteredTask.get_Name");
            *name = status == S_OK ? ::SysAllocString(static_cast<RegisteredTask*>(self)->task) : nullptr;
            return status;
        };
        table.get_State = [](IRegisteredTask*, TASK_STATE* state) {
            *state = TASK_STATE_READY;
            return step("IRegisteredTask.get_State");
        };
        table.put_Enabled = [](IRegisteredTask* self, VARIANT_BOOL on) {
            return step("IRegisteredTask.put_Enabled", shown(static_cast<RegisteredTask*>(self)->task) + shown(on));
        };
    });
}

// A name that begins with the service's own, one that ends with it, and the name.
auto* make_task_collection() {
    constexpr auto fill = [](auto& table) {
        table.get_Count = [](IRegisteredTaskCollection*, LONG* count) {
            *count = 3;
            return step("IRegisteredTaskCollection.get_Count");
        };
        table.get_Item = [](IRegisteredTaskCollection*, VARIANT index, IRegisteredTask** task) {
            const HRESULT status = give(task, make_registered_task, "IRegisteredTaskCollection.get_Item", shown(index));
            if (status == S_OK && index.lVal != 3) {
                static_cast<RegisteredTask*>(*task)->task = index.lVal == 1 ? kLongerTask : kTask + 1;
            }
            return status;
        };
    };
    return make<Object<IRegisteredTaskCollection>>("IRegisteredTaskCollection", IID_IRegisteredTaskCollection, fill);
}

auto* make_folder() {
    return make<Object<ITaskFolder>>("ITaskFolder", IID_ITaskFolder, [](auto& table) {
        RECORD(RegisterTaskDefinition, make_registered_task);
        RECORD(GetTasks, make_task_collection);
        RECORD(DeleteTask);
    });
}

}  // namespace

IUnknown* make_task_service() {
    return reinterpret_cast<IUnknown*>(make<Object<ITaskService>>("ITaskService", IID_ITaskService, [](auto& table) {
        RECORD(Connect);
        RECORD(GetFolder, make_folder);
        RECORD(NewTask, make_definition);
    }));
}

}  // namespace doubles
