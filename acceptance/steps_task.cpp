// Group 3: the scheduled task, made by the service itself and by the product's own functions in this process. Each step
// leaves the service's task as the product makes it.
#include <windows.h>

#include <cstdio>
#include <ctime>

#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "jobs/task_scheduler_setting.h"
#include "kit.h"
#include "platform/clock.h"
#include "platform/module.h"
#include "platform/task_scheduler.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "process.h"
#include "product_service.h"
#include "running_program.h"
#include "task_view.h"
#include "time_zone.h"
#include "user_token.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kOwnTask[] = "zorv-acceptance task";

std::string Executable() {
    return ProgramFolder() + "\\ZorvalisWinService.exe";
}

std::string Collection() {
    return WideToUtf8(kCollectionTask);
}

std::string Number(long status) {
    char text[16] = {};
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(status));
    return text;
}

// A pass starts every five minutes.
void ExpectNextStart(Findings& findings, const std::string& which, const platform::RegisteredTask& task,
                     std::int64_t now) {
    findings.Expect(task.next_start > now && task.next_start <= now + 6 * 60,
                    which + " starts next in " + std::to_string(task.next_start - now) + " s, within six minutes");
}

// A task of the kit's own, once, in the given number of seconds.
platform::TaskResult RegisterOwn(int seconds) {
    std::tm local{};
    platform::local_time(platform::now_seconds() + seconds, local);
    char start[32] = {};
    std::strftime(start, sizeof start, "%Y-%m-%dT%H:%M:%S", &local);
    return platform::register_task(kOwnTask, {.author = "zorv-acceptance",
                                              .run_level = 1,
                                              .execution_time_limit = "PT5M",
                                              .disallow_start_if_on_batteries = false,
                                              .trigger_id = "zorv-acceptance",
                                              .start_boundary = start,
                                              .interval = "PT5M",
                                              .path = Executable(),
                                              .arguments = "-j0",
                                              .user = "SYSTEM",
                                              .logon_type = 4});
}

void TakeOwnTask() {
    platform::delete_task(kOwnTask);
}

// Ends the step as not possible where Task Scheduler does not know what the product asks for.
void NeedScheduler(Findings& findings) {
    const platform::TaskResult result = RegisterOwn(3600);
    TakeOwnTask();
    if (result.status == E_NOTIMPL) {
        findings.Impossible("Task Scheduler has no more than stubs here (step " +
                            std::to_string(static_cast<int>(result.step)) + " of a registration: E_NOTIMPL)");
    }
    if (result.status < 0) {
        findings.Fail("a task can be registered: step " + std::to_string(static_cast<int>(result.step)) + ", " +
                      Number(result.status));
    }
}

// The task as the service makes it.
void MakeTask() {
    platform::set_module_path(platform::to_wide(Executable()));
    TaskSchedulerSetting().SetSpecificTimeTriggerTmer(kCollectionTask, kPassInterval, L"PT14M", L"-j0", 0);
}

// By the name, which differs from language to language, or by the number.
bool IsLocalSystem(const std::string& account) {
    BYTE sid[SECURITY_MAX_SID_SIZE] = {};
    wchar_t domain[256] = {};
    DWORD size = sizeof sid, length = 256;
    SID_NAME_USE use = SidTypeUnknown;
    return account == "S-1-5-18" || account == "SYSTEM" ||
           (::LookupAccountNameW(nullptr, platform::to_wide(account).c_str(), sid, &size, domain, &length, &use) !=
                FALSE &&
            ::IsWellKnownSid(sid, WinLocalSystemSid) != FALSE);
}

void ExpectTask(Findings& findings) {
    long status = 0;
    auto seen = ViewTask(Collection(), status);
    if (status < 0) {
        findings.Fail("Task Scheduler shows the task: " + Number(status));
    }
    for (const auto& [name, wanted] : {std::pair<const char*, std::string>{"Enabled", "-1"},
                                       {"Author", "ZorvTek Computer Inc."},
                                       {"RunLevel", "1"},
                                       {"StartWhenAvailable", "0"},
                                       {"ExecutionTimeLimit", "PT14M"},
                                       {"DisallowStartIfOnBatteries", "0"},
                                       {"Triggers", "1"},
                                       {"Type", "1"},
                                       {"Id", "Zorvalis"},
                                       {"Interval", "PT5M"},
                                       {"Actions", "1"},
                                       {"Path", Executable()},
                                       {"Arguments", "-j0"}}) {
        findings.ExpectText(seen[name], wanted, name);
    }
    const std::string account = seen["UserId"] + seen["GroupId"];  // one of them is empty
    findings.Expect(IsLocalSystem(account), "it runs as LocalSystem: " + account);
    findings.Saw("LogonType " + seen["LogonType"] + ", StartBoundary " + seen["StartBoundary"]);
    platform::RegisteredTask task;
    const std::int64_t now = platform::now_seconds();
    const platform::TaskResult found = platform::find_task(Collection(), now, task);
    findings.Expect(found.status >= 0 && task.enabled && task.interval == kPassSeconds && task.path == Executable() &&
                        task.arguments == "-j0",
                    "zorvctl's function finds the same");
    ExpectNextStart(findings, "it", task, now);
}

// The process that runs has made it: a task's start lies behind the moment of its making.
void IsMadeByTheService(Findings& findings) {
    NeedRunnable(findings);
    NeedScheduler(findings);
    const std::int64_t begun = WaitForLateStart(findings);
    std::tm local{};
    char first[32] = {};
    platform::local_time(begun, local);
    std::strftime(first, sizeof first, "%Y-%m-%dT%H:%M:%S", &local);
    std::string start;
    for (int second = 0; second < 60 && start < first; ++second) {
        long status = 0;
        start = ViewTask(Collection(), status)["StartBoundary"];
        ::Sleep(1000);
    }
    findings.Expect(start > first, "the task was made by the service that began at " + std::string(first));
    ExpectTask(findings);
}

void IsMadeByTheProductsFunction(Findings& findings) {
    NeedScheduler(findings);
    MakeTask();
    ExpectTask(findings);
    MakeTask();  // again, over the one that is there
    ExpectTask(findings);
}

void IsDisabledAndMadeAgain(Findings& findings) {
    NeedScheduler(findings);
    MakeTask();
    TaskSchedulerSetting().disableTask(kCollectionTask);
    long status = 0;
    findings.ExpectText(ViewTask(Collection(), status)["Enabled"], "0", "Enabled of a disabled task");
    platform::RegisteredTask task;
    findings.Expect(platform::find_task(Collection(), platform::now_seconds(), task).status >= 0 && !task.enabled,
                    "zorvctl's function finds it disabled");
    MakeTask();
    ExpectTask(findings);
}

// A pass sets the timer of temperatures again, which was deleted before.
bool PassRuns(Findings& findings, int seconds) {
    for (int tenth = 0; tenth < 10 * seconds; ++tenth) {
        if (ReadRegString(kLocalMachine, kProductKey, L"GetThermal") != ERROR_READREG) {
            findings.Saw("the pass came after " + std::to_string(tenth / 10) + " s");
            return true;
        }
        ::Sleep(100);
    }
    return false;
}

void RunsAPassWhenAsked(Findings& findings) {
    NeedScheduler(findings);
    MakeTask();
    DeleteRegValue(kLocalMachine, kProductKey, L"GetThermal");
    const long asked = RunTask(Collection());
    findings.Expect(asked >= 0, "Task Scheduler takes the wish to run it: " + Number(asked));
    findings.Expect(PassRuns(findings, 60), "a pass as LocalSystem has set the timer GetThermal");
    long status = 0;
    std::string result;
    for (int second = 0; second < 30 && result != "0"; ++second) {  // 0x41301 while it runs
        ::Sleep(1000);
        result = ViewTask(Collection(), status)["LastTaskResult"];
    }
    findings.ExpectText(result, "0", "the pass's exit code as Task Scheduler has it");
}

void RunsAPassByItsTrigger(Findings& findings) {
    NeedScheduler(findings);
    struct OwnTask {
        ~OwnTask() { TakeOwnTask(); }
    } const ownTask;
    DeleteRegValue(kLocalMachine, kProductKey, L"GetThermal");
    const platform::TaskResult result = RegisterOwn(15);
    findings.Expect(result.status >= 0, "a task that starts in 15 s can be registered: " + Number(result.status));
    findings.Expect(PassRuns(findings, 90), "a pass has set the timer GetThermal");
    long status = 0;
    std::string code;
    // The product's own task may have been the one that did it: so this one's result counts.
    Until(60, [&] { return (code = ViewTask(kOwnTask, status)["LastTaskResult"]) == "0"; });
    findings.ExpectText(code, "0", "the exit code of the pass that this task has started");
}

void KeepsLocalTimeInAnotherZone(Findings& findings) {
    NeedScheduler(findings);
    MakeTask();
    long status = 0;
    const std::string boundary = ViewTask(Collection(), status)["StartBoundary"];
    struct Task {
        ~Task() { MakeTask(); }  // with the zone of before
    } const madeAgain;
    ChangedZone zone;
    TIME_ZONE_INFORMATION before = {};
    ::GetTimeZoneInformation(&before);
    const unsigned long error = zone.Set(before.Bias == -330 ? L"China Standard Time" : L"India Standard Time");
    if (error != ERROR_SUCCESS) {
        findings.Impossible("the time zone cannot be changed: " + ErrorText(error));
    }
    findings.ExpectText(ViewTask(Collection(), status)["StartBoundary"], boundary,
                        "the start, which is a local time, in the other zone");
    MakeTask();
    platform::RegisteredTask task;
    const std::int64_t now = platform::now_seconds();
    platform::find_task(Collection(), now, task);
    ExpectNextStart(findings, "a task that is made in the other zone", task, now);
}

// The task of 3.1: one that an administrator makes may be that user's to see.
void IsHiddenFromUsers(Findings& findings) {
    NeedRunnable(findings);
    NeedScheduler(findings);
    const platform::OwnedHandle token = UserToken(findings);
    const std::string command = Quoted(ProgramFolder() + "\\zorvctl.exe") + " tasks list";
    const Ended administrator = RunProgram(command, 60);
    findings.Expect(administrator.code == 0 && administrator.output.find(Collection()) != std::string::npos,
                    "an administrator sees the task: " + administrator.output.substr(0, 300));
    RunningProgram user(command, token.get());
    std::string output;
    DWORD code = 0;
    findings.Expect(user.started() && user.Wait(60, output, code) && code != 0 &&
                        output.find("ask as administrator") != std::string::npos,
                    "an ordinary user hears that it takes an administrator: " +
                        (user.started() ? output.substr(0, 300) : ErrorText(user.error())));
}

void IsDeleted(Findings& findings) {
    NeedScheduler(findings);
    MakeTask();
    TaskSchedulerSetting().DeleteTaskSchedulerTriggerTmer(kCollectionTask);
    long status = 0;
    ViewTask(Collection(), status);
    findings.ExpectText(Number(status), Number(platform::kNoSuchTask), "what Task Scheduler says of the deleted task");
    findings.ExpectText(Number(platform::delete_task(Collection()).status), Number(platform::kNoSuchTask),
                        "what it says to a second deletion");
    MakeTask();
    StopProduct(findings);  // a process that has borne ten thousand events (2.11) has many handles
    StartProduct(findings);
}

}  // namespace

std::vector<Step> TaskSteps() {
    return {
        {"3.1", "Two minutes after its start the service has made its task", IsMadeByTheService, 250},
        {"3.2", "An ordinary user hears that the task takes an administrator", IsHiddenFromUsers, 150},
        {"3.3", "The task shows each field in Task Scheduler, and can be made over itself",
         IsMadeByTheProductsFunction},
        {"3.4", "A disabled task stays registered, and is enabled when it is made again", IsDisabledAndMadeAgain},
        {"3.5", "The task runs a pass when Task Scheduler is asked to", RunsAPassWhenAsked, 150},
        {"3.6", "A task runs a pass when its time has come", RunsAPassByItsTrigger, 150, TakeOwnTask},
        {"3.7", "The task's start stays a local time when the time zone changes", KeepsLocalTimeInAnotherZone, 60,
         RestoreZone},
        {"3.8", "A deleted task is gone", IsDeleted, 150},
    };
}

}  // namespace zorvalis::acceptance
