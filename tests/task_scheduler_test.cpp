// The scheduled task as the jobs leave it, in the stand-in machine's own form.
#include "common/wide_to_utf8.h"
#include "jobs/task_scheduler_setting.h"

#include <gtest/gtest.h>

#include "common/time.h"
#include "platform/module.h"
#include "platform/stand_in/step_failure.h"
#include "platform/task_scheduler.h"
#include "support/notebook.h"
#include "support/traced.h"

namespace zorvalis {
namespace {

using Step = platform::TaskStep;

class ScheduledTask : public testing::Test {
protected:
    ~ScheduledTask() override { platform::fail_step("", 0); }

    static void Do(const wchar_t* job) { Jobs().DoJob(job, 0, 0); }

    static std::string Text(const std::wstring& name = kCollectionTask) {
        return read_text(platform::machine_folder() + "/tasks/" + WideToUtf8(name) + ".json");
    }

    static std::string Start() {
        const std::string text = Text();
        return text.empty() ? "" : std::string(ParseJson(text)["trigger"]["startBoundary"]);
    }

    static bool IsEnabled(const std::wstring& name = kCollectionTask) { return ParseJson(Text(name))["enabled"]; }

    Notebook machine;
};

TEST_F(ScheduledTask, StartsThisExecutableEveryFiveMinutesFromFiveMinutesOn) {
    SetClock(2030, 1, 2, 10, 0, 30);
    Do(L"jobCreateTaskScheduler");
    std::wstring path(260, L'\0');
    path.resize(platform::module_file_name(path.data(), 260));
    const Json expected = {
        {"name", WideToUtf8(kCollectionTask)},
        {"author", "ZorvTek Computer Inc."},
        {"runLevel", 1},
        {"startWhenAvailable", false},
        {"executionTimeLimit", "PT14M"},
        {"disallowStartIfOnBatteries", false},
        {"trigger", {{"id", "Zorvalis"}, {"startBoundary", "2030-01-02T10:05:00"}, {"interval", "PT5M"}}},
        {"action", {{"path", WideToUtf8(path)}, {"arguments", "-j0"}}},
        {"user", "SYSTEM"},
        {"logonType", 4},
        {"enabled", true}};
    EXPECT_EQ(ParseJson(Text()), expected);
    ExpectEventLog({});
}

TEST_F(ScheduledTask, IsPutOffToTheNextDayOnlyWhenTheDoJobDayIsOver) {
    Do(L"jobUpdateTaskScheduler");
    EXPECT_EQ(Text(), "") << "today is a do-job day";
    SetValue(L"lastDojobTime", std::to_wstring(SetClock(2030, 1, 1, 0)));
    SetClock(2030, 1, 2, 23, 50);
    Do(L"jobUpdateTaskScheduler");
    std::set<std::string> starts;
    for (int count = 0; count < 40; ++count) {
        starts.insert(Start());
        Do(L"jobUpdateTaskScheduler");
    }
    EXPECT_GT(starts.size(), 5U) << "in a minute by chance";
    EXPECT_GE(*starts.begin(), "2030-01-03T00:00:00");
    EXPECT_LE(*starts.rbegin(), "2030-01-03T00:59:00");
    platform::fail_step(Step::register_task, -1);
    Do(L"jobUpdateTaskScheduler");
    EXPECT_FALSE(IsEnabled()) << "it was off before it was to be set anew";
}

TEST_F(ScheduledTask, StartsOnTheNextDayOfTheCalendarWhateverItsLength) {
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    for (const auto& [month, day, hour] : {std::tuple{10, 25, 0}, {10, 25, 23}, {3, 28, 23}, {3, 29, 0}, {12, 31, 0}}) {
        SetClock(2026, month, day, hour, 30);
        SetClock(2026, month, day + 1, 0, 0);
        const std::string next = TodayDateString();
        SetClock(2026, month, day, hour, 30);
        const std::string start = WideToUtf8(StartBoundary(1));
        EXPECT_EQ(start.substr(0, 14), next.substr(0, 4) + "-" + next.substr(5, 2) + "-" + next.substr(8) + "T00:");
    }
}

TEST_F(ScheduledTask, StaysDisabledUntilItIsSetAgain) {
    TaskSchedulerSetting bridge;
    bridge.SetSpecificTimeTriggerTmer(L"Other", L"PT5M", L"PT14M", L"-j1", 0);
    bridge.SetSpecificTimeTriggerTmer(kActivationTask, L"PT5M", L"PT14M", L"-j1", 0);
    const std::string other = Text(L"Other");
    Do(L"jobDisableTaskScheduler");
    EXPECT_EQ(Text(), "") << "there was nothing to disable";
    EXPECT_FALSE(IsEnabled(kActivationTask)) << "the activation's goes with it";
    Do(L"jobCreateTaskScheduler");
    WriteRegString(kLocalMachine, kSetupStateKey, L"ImageState", L"");
    Do(L"jobDisableTaskScheduler");
    EXPECT_FALSE(IsEnabled()) << "also on a machine that is not ready";
    const std::string before = Text();
    Do(L"jobCreateTaskScheduler");
    Do(L"jobUpdateTaskScheduler");
    EXPECT_EQ(Text(), before) << "such a machine sets none";
    machine.ready();
    Do(L"jobCreateTaskScheduler");
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Text(L"Other"), other);
    bridge.DeleteTaskSchedulerTriggerTmer(kCollectionTask);
    bridge.DeleteTaskSchedulerTriggerTmer(kCollectionTask);
    EXPECT_EQ(Text(), "");
    EXPECT_EQ(Text(L"Other"), other);
    ExpectEventLog({});
}

TEST_F(ScheduledTask, IsNotRegisteredWhenAStepFails) {
    const std::pair<Step, const char*> steps[] = {
        {Step::enter, " SetSpecificTimeTriggerTmer CoInitializeEx failed:. Error code = "},
        {Step::get_root_folder, " SetSpecificTimeTriggerTmer Cannot get Root folder pointer:"},
        {Step::put_run_level, " SetSpecificTimeTriggerTmer Cannot put Runlevel:"},
        {Step::query_exec_action, "SetAction call failed for IExecAction:"},
        {Step::register_task, " SetSpecificTimeTriggerTmer Error saving the Task:"},
    };
    std::vector<std::string> events;
    testing::internal::CaptureStdout();
    for (const auto& [step, words] : steps) {
        platform::fail_step(step, -2147024891);
        Do(L"jobCreateTaskScheduler");
        EXPECT_EQ(Text(), "") << words;
        events.push_back(std::string(words) + "-2147024891");
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "SetSpecificTimeTriggerTmer CoInitializeEx failed:. Error code = 0x80070005");
    ExpectEventLog(events);
}

TEST_F(ScheduledTask, IsLeftAloneWhenItCannotBeReached) {
    Do(L"jobCreateTaskScheduler");
    const std::string before = Text();
    const std::pair<Step, std::vector<std::string>> steps[] = {
        {Step::connect, {}},
        {Step::get_task_count, {}},
        {Step::get_task, {"[TaskSchedulerSetting] Cannot get the registered task item at index=1"}},
        {Step::get_task_name, {"[TaskSchedulerSetting] Cannot get the registered task name:"}},
    };
    for (const auto& [step, traces] : steps) {
        platform::fail_step(step, -1);
        EXPECT_EQ(Traced([] { TaskSchedulerSetting().disableTask(kCollectionTask); }), traces);
        EXPECT_EQ(Text(), before);
    }
    platform::fail_step(Step::connect, -1);
    TaskSchedulerSetting().DeleteTaskSchedulerTriggerTmer(kCollectionTask);
    EXPECT_EQ(Text(), before);
    ExpectEventLog({"disableTask connect task service failed:. Error code = -1",
                    "disableTask get count failed:. Error code = -1",
                    "DeleteTaskSchedulerTriggerTmer ITaskService::Connect failed:-1"});
}

}  // namespace
}  // namespace zorvalis
