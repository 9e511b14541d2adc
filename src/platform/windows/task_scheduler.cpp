#include "platform/task_scheduler.h"

#include <windows.h>

#include <taskschd.h>

#include "platform/windows/com.h"

namespace platform {

// Released from the last to the first.
struct TaskScheduler::State {
    Apartment apartment;
    ComPointer<ITaskService> service;
    ComPointer<ITaskFolder> folder;
    ComPointer<ITaskDefinition> definition;
    ComPointer<IRegistrationInfo> information;
    ComPointer<IPrincipal> principal;
    ComPointer<ITaskSettings> settings;
    ComPointer<ITriggerCollection> triggers;
    ComPointer<ITrigger> trigger;
    ComPointer<ITimeTrigger> time_trigger;
    ComPointer<IRepetitionPattern> repetition;
    ComPointer<IActionCollection> actions;
    ComPointer<IAction> action;
    ComPointer<IExecAction> exec_action;
    ComPointer<IRegisteredTask> registered;
    ComPointer<IRegisteredTaskCollection> tasks;
    ComPointer<IRegisteredTask> task;
};

namespace {

VARIANT_BOOL to_system(bool on) {
    return on ? VARIANT_TRUE : VARIANT_FALSE;
}

}  // namespace

TaskScheduler::TaskScheduler() : state_(new State) {}

TaskScheduler::~TaskScheduler() {
    delete state_;
}

TaskScheduler::Status TaskScheduler::enter() {
    return state_->apartment.enter();
}

TaskScheduler::Status TaskScheduler::create_service() {
    return ::CoCreateInstance(__uuidof(::TaskScheduler), nullptr, CLSCTX_INPROC_SERVER, __uuidof(ITaskService),
                              Received(state_->service));
}

TaskScheduler::Status TaskScheduler::connect() {
    const OwnedVariant none;
    return state_->service->Connect(none, none, none, none);
}

TaskScheduler::Status TaskScheduler::get_root_folder() {
    return state_->service->GetFolder(make_text(L"\\").get(), Received(state_->folder));
}

TaskScheduler::Status TaskScheduler::new_task() {
    return state_->service->NewTask(0, Received(state_->definition));
}

TaskScheduler::Status TaskScheduler::get_registration_info() {
    return state_->definition->get_RegistrationInfo(Received(state_->information));
}

TaskScheduler::Status TaskScheduler::put_author(const wchar_t* author) {
    return state_->information->put_Author(make_text(author).get());
}

TaskScheduler::Status TaskScheduler::get_principal() {
    return state_->definition->get_Principal(Received(state_->principal));
}

TaskScheduler::Status TaskScheduler::put_run_level(std::int32_t level) {
    return state_->principal->put_RunLevel(static_cast<TASK_RUNLEVEL_TYPE>(level));
}

TaskScheduler::Status TaskScheduler::get_settings() {
    return state_->definition->get_Settings(Received(state_->settings));
}

TaskScheduler::Status TaskScheduler::put_start_when_available(bool on) {
    return state_->settings->put_StartWhenAvailable(to_system(on));
}

TaskScheduler::Status TaskScheduler::put_execution_time_limit(const wchar_t* limit) {
    return state_->settings->put_ExecutionTimeLimit(make_text(limit).get());
}

TaskScheduler::Status TaskScheduler::put_disallow_start_if_on_batteries(bool on) {
    return state_->settings->put_DisallowStartIfOnBatteries(to_system(on));
}

TaskScheduler::Status TaskScheduler::get_triggers() {
    return state_->definition->get_Triggers(Received(state_->triggers));
}

TaskScheduler::Status TaskScheduler::create_time_trigger() {
    return state_->triggers->Create(TASK_TRIGGER_TIME, Received(state_->trigger));
}

TaskScheduler::Status TaskScheduler::query_time_trigger() {
    return state_->trigger->QueryInterface(__uuidof(ITimeTrigger), Received(state_->time_trigger));
}

TaskScheduler::Status TaskScheduler::put_trigger_id(const wchar_t* id) {
    return state_->time_trigger->put_Id(make_text(id).get());
}

TaskScheduler::Status TaskScheduler::put_start_boundary(const wchar_t* local_time) {
    return state_->time_trigger->put_StartBoundary(make_text(local_time).get());
}

TaskScheduler::Status TaskScheduler::get_repetition() {
    return state_->time_trigger->get_Repetition(Received(state_->repetition));
}

TaskScheduler::Status TaskScheduler::put_repetition_interval(const wchar_t* interval) {
    return state_->repetition->put_Interval(make_text(interval).get());
}

TaskScheduler::Status TaskScheduler::get_actions() {
    return state_->definition->get_Actions(Received(state_->actions));
}

TaskScheduler::Status TaskScheduler::create_exec_action() {
    return state_->actions->Create(TASK_ACTION_EXEC, Received(state_->action));
}

TaskScheduler::Status TaskScheduler::query_exec_action() {
    return state_->action->QueryInterface(__uuidof(IExecAction), Received(state_->exec_action));
}

TaskScheduler::Status TaskScheduler::put_action_path(const wchar_t* path) {
    return state_->exec_action->put_Path(make_text(path).get());
}

TaskScheduler::Status TaskScheduler::put_action_arguments(const wchar_t* arguments) {
    return state_->exec_action->put_Arguments(make_text(arguments).get());
}

TaskScheduler::Status TaskScheduler::register_task(const wchar_t* name, std::int32_t flags, const wchar_t* user,
                                                   std::int32_t logon_type, const wchar_t* security) {
    const OwnedVariant none;  // no password
    return state_->folder->RegisterTaskDefinition(make_text(name).get(), state_->definition.get(), flags,
                                                  OwnedVariant(user), none, static_cast<TASK_LOGON_TYPE>(logon_type),
                                                  OwnedVariant(security), Received(state_->registered));
}

TaskScheduler::Status TaskScheduler::get_tasks() {
    return state_->folder->GetTasks(0, Received(state_->tasks));
}

TaskScheduler::Status TaskScheduler::get_task_count(std::int32_t& count) {
    LONG number = 0;
    const HRESULT status = state_->tasks->get_Count(&number);
    count = number;
    return status;
}

TaskScheduler::Status TaskScheduler::get_task(std::int32_t index) {
    OwnedVariant number;
    number.vt = VT_I4;
    number.lVal = index;
    return state_->tasks->get_Item(number, Received(state_->task));
}

TaskScheduler::Status TaskScheduler::get_task_name(std::wstring& name) {
    BSTR text = nullptr;
    const HRESULT status = state_->task->get_Name(&text);
    const OwnedText owned(text);
    name.assign(text, ::SysStringLen(text));
    return status;
}

TaskScheduler::Status TaskScheduler::get_task_state(std::int32_t& state) {
    TASK_STATE value = TASK_STATE_UNKNOWN;
    const HRESULT status = state_->task->get_State(&value);
    state = value;
    return status;
}

TaskScheduler::Status TaskScheduler::put_task_enabled(bool on) {
    return state_->task->put_Enabled(to_system(on));
}

TaskScheduler::Status TaskScheduler::delete_task(const wchar_t* name) {
    return state_->folder->DeleteTask(make_text(name).get(), 0);
}

}  // namespace platform
