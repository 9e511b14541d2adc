// `zorvctl tasks` on Windows, which has a real task scheduler: says what it holds, and names the commands that do more.

#include <CLI/CLI.hpp>

#include "base/json.h"
#include "commands.h"
#include "common/wide_to_utf8.h"
#include "facts.h"
#include "host.h"
#include "jobs/task_scheduler_setting.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/task_scheduler.h"
#include "windows_tools.h"

namespace zorvalis {

namespace {

void ListTasks(bool asJson) {
    const std::string name = WideToUtf8(kCollectionTask), query = TaskCommand("/query /v /fo LIST");
    platform::RegisteredTask task;
    const std::int32_t status = platform::find_task(name, platform::now_seconds(), task).status;
    const bool there = status >= 0;
    if (asJson) {
        Json tasks = Json::array();
        if (there) {
            tasks.push_back({{"name", name},
                             {"enabled", task.enabled},
                             {"nextStart", task.next_start == 0 ? Json(nullptr) : Json(task.next_start)},
                             {"path", ReadableText(task.path, false)}});
        }
        return Print(DumpJson({{"tasks", tasks}, {"started", TasksAreStarted()}}) + "\n");
    }
    if (there) {
        Print(name + "\n    " +
              (!task.enabled          ? "disabled"
               : task.next_start == 0 ? "ready, but no start is to come"
                                      : "ready, next start " + MinuteText(task.next_start)) +
              "\n    " + ReadableText(task.path) + "\n");
    }
    Print("All of it: `" + query + "`\n");
    Require(there, status == platform::kNoSuchTask && HasAllRights()
                       ? "there is no scheduled task of the service"
                       : "this caller cannot see the service's scheduled task: ask as administrator");
}

}  // namespace

void AddTaskCommands(CLI::App& app) {
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* group = app.add_subcommand("tasks", "Looks at the service's scheduled task");
    group->require_subcommand(1);
    CLI::App* list = group->add_subcommand("list", "Says whether it is there, and when it starts next");
    list->add_flag("--json", *asJson, "As JSON, times in seconds since 1970");
    list->callback([asJson] { ListTasks(*asJson); });
    group->add_subcommand("run", "Names the command that starts it")->allow_extras()->callback([] {
        StandInMachine("the task scheduler starts it: `" + TaskCommand("/run") + "`");
    });
}

}  // namespace zorvalis
