// `zorvctl tasks`: lists the scheduled tasks of a stand-in machine and runs them.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>

#include "base/json.h"
#include "commands.h"
#include "facts.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/stand_in/task_file.h"
#include "task_list.h"
#include "task_runner.h"

namespace zorvalis {

namespace {

struct RunWords {
    std::string until, duration;
    RunOptions options;
    bool skipWaits = false;
};

std::string StateText(const Task& task, std::int64_t now) {
    if (!task.definition.enabled) {
        return "disabled";
    }
    const auto next = task.NextStart(now);
    return next ? "ready, next start in " + SpanText(*next - now) + ", " + MinuteText(*next) : "ready, but over";
}

std::string TaskText(const Task& task, std::int64_t now) {
    if (!task.problem.empty()) {
        return ReadableText(task.name) + "\n    never starts: " + ReadableText(task.problem) + "\n";
    }
    const platform::TaskDefinition& definition = task.definition;
    const std::int64_t first = platform::task_time(definition.start_boundary).value_or(0);
    return ReadableText(task.name) + "\n    " + StateText(task, now) + "\n    " +
           (task.Interval() > 0 ? "every " + SpanText(task.Interval()) + " from " : "once, ") + MinuteText(first) +
           (task.Limit() > 0 ? ", killed after " + SpanText(task.Limit()) : ", for as long as it takes") + "\n    " +
           ReadableText(definition.path + (definition.arguments.empty() ? "" : " ") + definition.arguments) +
           (definition.user.empty() ? "" : "\n    as " + ReadableText(definition.user)) +
           (definition.run_level == 1 ? ", with the highest rights\n" : "\n");
}

void ListTasks(bool asJson) {
    const std::string machine = StandInMachine();
    const std::vector<Task> tasks = ReadTasks(machine);
    const bool broken = std::any_of(tasks.begin(), tasks.end(), [](const Task& each) { return !each.problem.empty(); });
    Json all = Json::array();
    for (const Task& task : tasks) {
        const auto next = task.NextStart(platform::now_seconds());
        all.push_back({{"name", ReadableText(task.name, false)},
                       {"enabled", task.problem.empty() && task.definition.enabled},
                       {"nextStart", next ? Json(*next) : Json(nullptr)},
                       {"path", ReadableText(task.definition.path, false)},
                       {"problem", task.problem.empty() ? Json(nullptr) : Json(ReadableText(task.problem, false))}});
        Print(asJson ? "" : TaskText(task, platform::now_seconds()));
    }
    const bool started = TasksAreRun(machine);
    if (asJson) {
        Print(DumpJson({{"tasks", all}, {"started", started}}) + "\n");
    } else if (tasks.empty()) {
        Complain("there are no scheduled tasks: the service makes one two minutes after its start");
    } else {
        Print(started ? "A runner starts them.\n" : "Nobody starts them now: `zorvctl tasks run` does.\n");
        const std::string heldBack = ReadFacts().HeldBack();
        Print(heldBack.empty() ? "" : "Their passes collect nothing: " + heldBack + ".\n");
    }
    Require(!broken, "");
}

// "2026-12-24", "2026-12-24 18:00" or "2026-12-24 18:00:00".
std::int64_t ParseTime(std::string text) {
    constexpr std::string_view kMidnight = "0000-00-00T00:00:00";
    std::replace(text.begin(), text.end(), ' ', 'T');
    text += kMidnight.substr(std::min(text.size(), kMidnight.size()));
    const auto time = platform::task_time(text);
    Require(time.has_value(), "--until takes a time like \"2026-12-24 18:00\"", kWrongUsage);
    return *time;
}

// "30d", "12h", "90m" or "45s".
std::int64_t ParseSpan(const std::string& text) {
    const char unit = text.empty() ? ' ' : text.back();
    const auto seconds = platform::task_duration(unit == 'd'   ? "P" + text.substr(0, text.size() - 1) + "D"
                                                 : unit == 'h' ? "PT" + text.substr(0, text.size() - 1) + "H"
                                                 : unit == 'm' ? "PT" + text.substr(0, text.size() - 1) + "M"
                                                 : unit == 's' ? "PT" + text.substr(0, text.size() - 1) + "S"
                                                               : "");
    Require(seconds.has_value(), "--for takes a span like 30d, 12h, 90m or 45s", kWrongUsage);
    return *seconds;
}

void RunTasks(const RunWords& words) {
    RunOptions options = words.options;
    const std::string machine = StandInMachine();
    if (!words.until.empty()) {
        options.until = ParseTime(words.until);
    }
    if (!words.duration.empty()) {
        options.until = platform::now_seconds() + ParseSpan(words.duration);
    }
    options.speed = words.skipWaits ? 0 : options.speed;
    TaskRunner(machine, options).Run();
}

}  // namespace

void AddTaskCommands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("tasks", "Looks at the scheduled tasks of a stand-in machine and starts them");
    group->require_subcommand(1);
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* list = group->add_subcommand("list", "Says what there is, and when each task starts next");
    list->add_flag("--json", *asJson, "As JSON, times in seconds since 1970");
    list->callback([asJson] { ListTasks(*asJson); });

    const auto words = std::make_shared<RunWords>();
    CLI::App* run = group->add_subcommand("run", "Starts the tasks when they are due, until Ctrl-C");
    CLI::Option* until =
        run->add_option("--until", words->until, "Ends at that time of the machine")->type_name("TIME");
    run->add_option("--for", words->duration, "Ends after so long by the machine's clock, as 30d, 12h, 90m or 45s")
        ->type_name("SPAN")
        ->excludes(until);
    run->add_flag("--once", words->options.once, "Ends after the next start");
    CLI::Option* speed =
        run->add_option("--speed", words->options.speed, "Moves the machine's clock on N times as fast while it waits")
            ->check(CLI::Range(1.0, 1e6))
            ->type_name("N");
    run->add_flag("--skip-waits", words->skipWaits, "Moves the machine's clock on to the next start instead of waiting")
        ->excludes(speed);
    run->add_flag("-q,--quiet", words->options.quiet, "Prints only what goes wrong, and the sum");
    run->callback([words] { RunTasks(*words); });
}

}  // namespace zorvalis
