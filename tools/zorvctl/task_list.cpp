// Reads the task files of a stand-in machine, and computes when each task starts.
#include "task_list.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "output.h"

namespace zorvalis {

namespace fs = std::filesystem;

std::int64_t Task::Interval() const {
    return platform::task_duration(definition.interval).value_or(0);
}

std::int64_t Task::Limit() const {
    return platform::task_duration(definition.execution_time_limit).value_or(0);
}

std::optional<std::int64_t> Task::NextStart(std::int64_t from) const {
    return problem.empty() ? platform::next_start(definition, from) : std::nullopt;
}

std::optional<std::int64_t> Task::LatestStart(std::int64_t from, std::int64_t to) const {
    const auto next = NextStart(from);
    if (!next || *next > to) {
        return std::nullopt;
    }
    return Interval() == 0 ? next : std::optional(*next + (to - *next) / Interval() * Interval());
}

std::vector<Task> ReadTasks(const std::string& machine) {
    std::vector<Task> tasks;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(fs::path(machine) / platform::kTaskFolder, error)) {
        const std::string file = entry.path().filename().string();
        if (file.front() == '.' || !file.ends_with(platform::kTaskEnding)) {
            continue;
        }
        Task task;
        task.name = entry.path().stem().string();
        try {
            task.text = ReadWholeFile(entry.path().string());
            task.definition = platform::parse_task(task.text);
        } catch (const Failure& failure) {
            task.problem = failure.text;
        } catch (const std::invalid_argument& invalid) {
            task.problem = entry.path().string() + " is broken: " + invalid.what();
        }
        tasks.push_back(std::move(task));
    }
    std::sort(tasks.begin(), tasks.end(), [](const Task& a, const Task& b) { return a.name < b.name; });
    return tasks;
}

}  // namespace zorvalis
