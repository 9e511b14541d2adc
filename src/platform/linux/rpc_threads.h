// The threads that make the calls of the local endpoint. They are not those of thread_pool.h, since calls come in
// bursts and may wait for a minute. Threads are made on demand; the one that became idle last is used first, so that
// the others stay idle long enough to end. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace platform {

class RpcThreads {
public:
    using Task = std::function<void()>;  // must not throw

    // The object of the process. Never destroyed: its threads may run until the process ends.
    static RpcThreads& get();

    // At most `most` tasks run at once, further ones wait. A thread that had no task for `idle` ends.
    void set_limits(std::size_t most, std::chrono::milliseconds idle);

    // False, and the task is destroyed, when there is no thread and none can be made.
    bool submit(Task task);

    // The calling thread becomes one of them, until it ends as they do.
    void work();

private:
    struct Worker {
        std::condition_variable given;
        Task task;
    };

    // These run with mutex_ held, but `run`, which takes it.
    bool add_thread();
    void run();
    bool wait(std::unique_lock<std::mutex>& guard, Worker& worker);

    std::mutex mutex_;
    std::deque<Task> waiting_;
    std::vector<Worker*> idle_;
    std::size_t threads_ = 0, busy_ = 0, most_ = 1;
    std::chrono::milliseconds idle_time_{};
};

}  // namespace platform
