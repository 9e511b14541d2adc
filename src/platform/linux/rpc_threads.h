// The threads that make the calls of the local endpoint, apart from the process' pool, since calls come in bursts and
// may wait for a minute. They are made on demand and reused last in, first out, so that the rest of them may end. Any
// thread.
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
    using Task = std::function<void()>;  // lets nothing out

    // The process' own, which never end: their threads may still run when it does.
    static RpcThreads& get();

    // At most so many at once; the next task waits. A thread ends when it has had none for the time.
    void set_limits(std::size_t most, std::chrono::milliseconds idle);

    // False when there is no thread and none can be made.
    bool submit(Task task);

private:
    struct Worker {
        std::condition_variable given;
        Task task;
    };

    bool add_thread();
    void run();
    bool wait(std::unique_lock<std::mutex>& guard, Worker& worker);

    std::mutex mutex_;
    std::deque<Task> waiting_;
    std::vector<Worker*> idle_;
    std::size_t threads_ = 0, busy_ = 0, most_ = 1;
    std::chrono::milliseconds idleTime_{};
};

}  // namespace platform
