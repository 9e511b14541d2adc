// Starts the tasks of a stand-in machine when they are due, as the task scheduler of Windows does.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/file_lock.h"
#include "task_list.h"

namespace zorvalis {

struct RunOptions {
    std::optional<std::int64_t> until;  // by the machine's clock
    double speed = 1;                   // of the machine's clock while no task runs; 0 jumps to the next start
    bool once = false, quiet = false;
};

// Whether some process runs the machine's tasks now.
bool TasksAreRun(const std::string& machine);

class TaskRunner {
public:
    // Raises a Failure when the machine has a runner already. From now on Ctrl-C and requests to end do not end the
    // process.
    TaskRunner(const std::string& machine, const RunOptions& options);
    ~TaskRunner();  // ends what still runs
    TaskRunner(const TaskRunner&) = delete;
    TaskRunner& operator=(const TaskRunner&) = delete;

    // Returns at the end that the options name, after waiting for the tasks that still run; or at once after a signal,
    // when the destructor ends them.
    void Run();

private:
    using Time = std::chrono::steady_clock::time_point;

    struct Seen {
        std::string text;       // of the task's file
        std::int64_t from = 0;  // starts before this time are done or left out
    };
    struct Running {
        std::string name;
        pid_t process = 0;
        Time since, limit;
        bool killed = false;
    };

    void ReadDefinitions(std::int64_t now);
    void StartDue(std::int64_t now);
    void Start(const Task& task, std::int64_t now);
    void EndOverdue();
    void Collect();
    void Tell(const Running& ended, int status);
    void Sleep(bool over);
    void Wait(std::int64_t microseconds);
    void SleepFast(std::int64_t left);
    void MoveClock(std::int64_t microseconds);
    void Say(const std::string& name, const std::string& what, bool always = false) const;

    const std::string machine_;
    const RunOptions options_;
    const platform::FileLock lock_;
    sigset_t signals_;  // of those who want an end, and of a process that has ended
    bool endWanted_ = false;
    std::vector<Task> tasks_;
    std::map<std::string, Seen> seen_;  // by name
    std::vector<Running> running_;
    int starts_ = 0, failed_ = 0, leftOut_ = 0;
};

}  // namespace zorvalis
