// A loop that starts what is due, collects what has ended, and sleeps or moves the machine's clock on.
#include "task_runner.h"

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>

#include "base/json.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "process_linux.h"

namespace zorvalis {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kSecond = 1000000;
constexpr std::int64_t kNoLimit = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLook = kSecond / 10;  // between looks at the clock and at files that others may have changed
constexpr std::chrono::seconds kGrace(2);     // for a process that is asked to end

std::string TimeText(std::int64_t seconds) {
    return LocalTimeText(static_cast<double>(seconds)).substr(0, 19);
}

std::int64_t MicrosecondsTo(Clock::time_point time) {
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(time - Clock::now());
    return std::max<std::int64_t>(left.count() + 1, 1);
}

constexpr char kLock[] = "tasks";

// The file behind the lock.
std::string LockPath(const std::string& machine) {
    return machine + "/run/" + kLock + ".lock";
}

}  // namespace

bool TasksAreRun(const std::string& machine) {
    return platform::file_exists(LockPath(machine)) && !platform::FileLock(kLock, 0).held();
}

TaskRunner::TaskRunner(const std::string& machine, const RunOptions& options)
    : machine_(machine), options_(options), lock_(kLock, 0) {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&signals_, signal);
    }
    sigprocmask(SIG_BLOCK, &signals_, nullptr);
    std::signal(SIGCHLD, SIG_DFL);  // a parent that ignores it gets no exit codes
    std::filesystem::create_directories(std::filesystem::path(machine) / platform::kTaskFolder);
    Require(platform::file_exists(LockPath(machine)), LockPath(machine) + " cannot be made: check who may write there");
    Require(lock_.held(), "the tasks of this machine are run already");
}

TaskRunner::~TaskRunner() {
    for (const Running& each : running_) {
        kill(-each.process, SIGTERM);
    }
    const auto patience = Clock::now() + kGrace;
    while (!running_.empty() && Clock::now() < patience) {
        std::erase_if(running_, [](const Running& each) { return waitpid(each.process, nullptr, WNOHANG) != 0; });
        if (!running_.empty()) {
            Wait(MicrosecondsTo(patience));
        }
    }
    for (const Running& each : running_) {
        kill(-each.process, SIGKILL);
        waitpid(each.process, nullptr, 0);
    }
}

void TaskRunner::Run() {
    for (;;) {
        const std::int64_t now = platform::now_seconds();
        Collect();
        EndOverdue();
        const bool over = (options_.until && now >= *options_.until) || (options_.once && starts_ > 0);
        if (endWanted_ || (over && running_.empty())) {
            break;
        }
        if (!over) {
            ReadDefinitions(now);
            StartDue(now);
        }
        FlushOutput();
        Sleep(over);
    }
    for (const Running& each : running_) {
        Say(each.name, "is ended with the runner", true);
    }
    Print(std::to_string(starts_) + (starts_ == 1 ? " start, " : " starts, ") + std::to_string(failed_) + " failed, " +
          std::to_string(leftOut_) + " left out\n");
    FlushOutput();
}

void TaskRunner::ReadDefinitions(std::int64_t now) {
    tasks_ = ReadTasks(machine_);
    std::map<std::string, Seen> seen;
    for (const Task& task : tasks_) {
        const auto before = seen_.find(task.name);
        const bool news = before == seen_.end() || before->second.text != task.text;
        // After the clock was set back, starts come again.
        const std::int64_t settled = before == seen_.end() ? now : std::min(before->second.from, now + 1);
        // Starts from before the task was registered are not made up for.
        const std::int64_t from = news ? std::max(settled, now) : settled;
        seen[task.name] = {task.text, from};
        if (news) {
            const auto next = task.NextStart(from);
            Say(task.name,
                !task.problem.empty()      ? ReadableText(task.problem)
                : !task.definition.enabled ? "is disabled"
                : next                     ? "next start " + TimeText(*next)
                                           : "has no start to come",
                !task.problem.empty());
        }
    }
    for (const auto& [name, before] : seen_) {
        if (!seen.contains(name)) {
            Say(name, "is deleted");
        }
    }
    seen_ = std::move(seen);
}

void TaskRunner::StartDue(std::int64_t now) {
    const std::int64_t to = options_.until ? std::min(now, *options_.until - 1) : now;
    for (const Task& task : tasks_) {
        std::int64_t& from = seen_[task.name].from;
        const auto due = task.LatestStart(from, to);
        from = std::max(from, now + 1);
        if (!due) {
            continue;
        }
        const auto same = [&task](const Running& each) { return each.name == task.name; };
        if (std::any_of(running_.begin(), running_.end(), same)) {
            ++leftOut_;
            Say(task.name, "still runs, so the start of " + TimeText(*due) + " is left out", true);
        } else {
            Start(task, now);
        }
    }
}

void TaskRunner::Start(const Task& task, std::int64_t now) {
    const platform::TaskDefinition& definition = task.definition;
    Running running{task.name, 0, Clock::now(), Clock::time_point::max()};
    ++starts_;
    std::vector<std::string> words = SplitArguments(definition.arguments);
    words.insert(words.begin(), platform::native_path(definition.path));
    sigset_t none;
    sigemptyset(&none);
    if (const int error = StartProcess(words, POSIX_SPAWN_SETPGROUP, none, "", running.process); error != 0) {
        ++failed_;
        return Say(task.name, "cannot start " + ReadableText(definition.path) + ": " + std::strerror(error), true);
    }
    if (task.Limit() > 0) {
        running.limit = running.since + std::chrono::seconds(std::min<std::int64_t>(task.Limit(), 366 * 86400));
    }
    const auto next = task.NextStart(now + 1);
    Say(task.name, "started, process " + std::to_string(running.process) +
                       (next ? "; next start " + TimeText(*next) : "; it has no other start"));
    running_.push_back(running);
}

void TaskRunner::EndOverdue() {
    for (Running& each : running_) {
        if (!each.killed && Clock::now() >= each.limit) {
            each.killed = true;
            kill(-each.process, SIGKILL);
        }
    }
}

void TaskRunner::Collect() {
    std::erase_if(running_, [this](const Running& each) {
        int status = 0;
        const bool ended = waitpid(each.process, &status, WNOHANG) != 0;
        if (ended) {
            Tell(each, status);
        }
        return ended;
    });
}

void TaskRunner::Tell(const Running& ended, int status) {
    char lasted[48];
    std::snprintf(lasted, sizeof lasted, " after %.1f seconds",
                  std::chrono::duration<double>(Clock::now() - ended.since).count());
    const bool failed = status != 0;
    failed_ += failed ? 1 : 0;
    Say(ended.name,
        (ended.killed          ? "was killed at its execution time limit,"
         : WIFSIGNALED(status) ? std::string("was ended by signal ") + std::to_string(WTERMSIG(status))
                               : "ended with exit code " + std::to_string(WEXITSTATUS(status))) +
            lasted,
        failed);
}

// Sleeps until something is to be done; when no start will come any more, that is only the end of a process. The
// machine's clock is moved on only while no task runs, so that tasks get their real time.
void TaskRunner::Sleep(bool over) {
    std::int64_t limit = kNoLimit;
    for (const Running& each : running_) {
        if (!each.killed && each.limit != Time::max()) {
            limit = std::min(limit, MicrosecondsTo(each.limit));
        }
    }
    std::optional<std::int64_t> start;
    for (const Task& task : tasks_) {
        const auto next = task.NextStart(seen_[task.name].from);
        start = next && (!start || *next < *start) ? next : start;
    }
    const auto moment = start && options_.until ? std::min(start, options_.until) : start ? start : options_.until;
    const std::int64_t left =
        over || !moment ? kNoLimit : std::max<std::int64_t>(*moment * kSecond - platform::now_microseconds(), 0);
    if (over || !running_.empty() || options_.speed == 1 || left == 0) {
        return Wait(std::min(limit, left));
    }
    if (options_.speed > 1) {
        return SleepFast(left);
    }
    // Without a start to come there is nothing to skip to: somebody may be about to register one.
    if (start) {
        MoveClock(left);
    }
    Wait(start ? 0 : left);
}

// Sleeps until a signal comes, but no longer than kLook: then Run looks at the clock and the files again.
void TaskRunner::Wait(std::int64_t microseconds) {
    timespec limit = {0, static_cast<long>(std::min(microseconds, kLook)) * 1000};
    for (int signal; (signal = sigtimedwait(&signals_, nullptr, &limit)) > 0; limit = {}) {
        endWanted_ |= signal != SIGCHLD;
    }
}

// Moves the clock on in small steps, so that other programs see it flow.
void TaskRunner::SleepFast(std::int64_t left) {
    const auto slept = [begin = Clock::now()] {
        return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
    };
    Wait(std::max<std::int64_t>(std::llround(std::min<double>(static_cast<double>(left) / options_.speed, kLook)), 1));
    MoveClock(std::min<std::int64_t>(std::llround(slept() * (options_.speed - 1)), left));
}

void TaskRunner::MoveClock(std::int64_t microseconds) {
    const std::string path = machine_ + "/clock.json";
    Json clock = Json::object();
    try {
        if (platform::file_exists(path)) {
            clock = ParseJson(ReadWholeFile(path));
        }
        clock["offset"] = clock.value("offset", 0.0) + static_cast<double>(microseconds) / kSecond;
    } catch (const std::logic_error& error) {
        throw Failure{path + " is broken: " + error.what()};
    }
    WriteIntoPlace(path, DumpJson(clock) + "\n");
}

void TaskRunner::Say(const std::string& name, const std::string& what, bool always) const {
    if (always || !options_.quiet) {
        Print(TimeText(platform::now_seconds()) + "  " + ReadableText(name) + ": " + what + "\n");
    }
}

}  // namespace zorvalis
