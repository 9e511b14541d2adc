// The scheduled tasks of the stand-in machine: their files, and what the task scheduler's steps answer.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "common/json.h"
#include "platform/linux/step_failure.h"
#include "platform/linux/task_file.h"
#include "platform/machine.h"
#include "platform/task_scheduler.h"
#include "support/machine.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

using Status = TaskScheduler::Status;

constexpr Status kDone = 0;

std::vector<std::string> files() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(machine_folder() + "/tasks")) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

std::string text_of(const std::string& name) {
    return read_text(machine_folder() + "/tasks/" + name + ".json");
}

struct Fields {
    const wchar_t *limit = L"PT14M", *start = L"2030-01-02T10:05:00", *interval = L"PT5M", *path = L"C:\\\u00FC x.exe";
    std::int32_t flags = 6;
};

Status visit_folder(TaskScheduler& task) {
    return task.enter() | task.create_service() | task.connect() | task.get_root_folder();
}

// The first status that is no success.
Status register_task(const wchar_t* name, const Fields& fields = {}) {
    TaskScheduler task;
    const std::function<Status()> steps[] = {
        [&] { return visit_folder(task); },
        [&] { return task.new_task(); },
        [&] { return task.get_registration_info(); },
        [&] { return task.put_author(L"Somebody \u20AC"); },
        [&] { return task.get_principal(); },
        [&] { return task.put_run_level(1); },
        [&] { return task.get_settings(); },
        [&] { return task.put_start_when_available(true); },
        [&] { return task.put_execution_time_limit(fields.limit); },
        [&] { return task.put_disallow_start_if_on_batteries(false); },
        [&] { return task.get_triggers(); },
        [&] { return task.create_time_trigger(); },
        [&] { return task.query_time_trigger(); },
        [&] { return task.put_trigger_id(L"Id"); },
        [&] { return task.put_start_boundary(fields.start); },
        [&] { return task.get_repetition(); },
        [&] { return task.put_repetition_interval(fields.interval); },
        [&] { return task.get_actions(); },
        [&] { return task.create_exec_action(); },
        [&] { return task.query_exec_action(); },
        [&] { return task.put_action_path(fields.path); },
        [&] { return task.put_action_arguments(L"-j0 \"a b\""); },
        [&] { return task.register_task(name, fields.flags, L"SYSTEM", 4, L""); },
    };
    for (const auto& step : steps) {
        if (const Status status = step(); status < 0) {
            return status;
        }
    }
    return kDone;
}

Status delete_task(const wchar_t* name) {
    TaskScheduler task;
    return visit_folder(task) < 0 ? -1 : task.delete_task(name);
}

void expect(Status status, std::uint32_t number, const char* what) {
    EXPECT_EQ(static_cast<std::uint32_t>(status), number) << what;
}

TEST(StandInTasks, AreRefusedWithTheSystemsNumbers) {
    const TestMachine machine;
    expect(delete_task(L"Task"), 0x80070002, "delete without a folder");
    const struct {
        const char* what;
        Fields fields;
        std::uint32_t status;
        const wchar_t* name = L"Task";
    } cases[] = {
        {"no duration", {.limit = L"14 minutes"}, 0x80041318},
        {"hours in the days", {.limit = L"P14H"}, 0x80041318},
        {"units in a wrong order", {.limit = L"PT5S3M"}, 0x80041318},
        {"too short an interval", {.interval = L"PT59S"}, 0x80041318},
        {"too long an interval", {.interval = L"P32D"}, 0x80041318},
        {"no such day", {.start = L"2030-02-30T10:05:00"}, 0x80041318},
        {"no time", {.start = L"2030-02-03 10:05:00"}, 0x80041318},
        {"no start", {.start = L""}, 0x80041319},
        {"no action", {.path = L""}, 0x80041319},
        {"a name that is a path", {}, 0x8007007B, L"a\\b"},
        {"no name", {}, 0x8007007B, L""},
        {"validated only", {.flags = 1}, 0},
        {"to be updated", {.flags = 4}, 0x80070002},
        {"to be created", {.flags = 2}, 0},
        {"to be created again", {.flags = 2}, 0x800700B7},
        {"without limit and interval", {.limit = L"PT0S", .interval = L"", .flags = 4}, 0},
    };
    for (const auto& each : cases) {
        expect(register_task(each.name, each.fields), each.status, each.what);
    }
    fail_step("put_author", -5);
    EXPECT_EQ(register_task(L"Other"), -5);
    fail_step("", 0);
    TaskScheduler early;
    expect(early.put_author(L""), 0x80004003, "a step without its object");

    write_text(machine_folder() + "/tasks/A.json", "{\"trigger\": 5");
    TaskScheduler task;
    ASSERT_EQ(visit_folder(task) | task.get_tasks(), kDone);
    expect(task.get_task(1), 0x80041321, "a broken file");
    expect(task.put_task_enabled(false), 0x80004003, "nothing to enable");
    EXPECT_EQ(task.get_task(2), kDone);
    EXPECT_EQ(delete_task(L"task"), kDone);
    expect(task.put_task_enabled(false), 0x80070002, "deleted meanwhile");
    expect(task.get_task(0), 0x80070057, "before the first");
    expect(task.get_task(3), 0x80070057, "behind the last");
    EXPECT_EQ(files(), std::vector<std::string>{"A.json"});
    EXPECT_EQ(register_task(L"a"), kDone) << "also in the place of a broken one";
    EXPECT_EQ(register_task(L"Task-\u00E9") | register_task(L"TASK-\u00C9"), kDone);
    EXPECT_EQ(text_of("TASK-\u00C9"), "") << "it keeps the first writing of its name";
    EXPECT_EQ(zorvalis::ParseJson(text_of("Task-\u00E9"))["name"], "Task-\u00E9");
    EXPECT_EQ(delete_task(L"tASK-\u00E9"), kDone);
    EXPECT_EQ(files(), std::vector<std::string>{"A.json"});

    fs::remove_all(machine_folder() + "/tasks");
    write_text(machine_folder() + "/tasks", "");
    expect(register_task(L"Task"), 0x8007010B, "no folder");
}

TEST(StandInTasks, SayWhatIsWrongWithAFile) {
    const std::string start = R"("trigger": {"startBoundary": "2030-01-02T10:05:00"})";
    const std::pair<std::string, const char*> cases[] = {
        {"[]", "no JSON object"},
        {"{" + start + "}", "no path"},
        {R"({"trigger": [], "action": {"path": "x"}})", "\"trigger\" is no object"},
        {"{" + start + R"(, "action": {"path": 1}})", "\"path\" has another type"},
        {"{" + start + R"(, "action": {"path": "x"}, "executionTimeLimit": "PT"})", "no duration"},
    };
    for (const auto& [text, words] : cases) {
        try {
            parse_task(text);
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(words), std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(task_duration("P1DT2H3M4S"), 93784);
    EXPECT_EQ(task_duration("PT1000000000S"), std::nullopt);
}

}  // namespace
}  // namespace platform
