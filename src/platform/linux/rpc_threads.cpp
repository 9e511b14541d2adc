#include "platform/linux/rpc_threads.h"

#include <malloc.h>

#include <algorithm>
#include <system_error>
#include <thread>
#include <utility>

namespace platform {

RpcThreads& RpcThreads::get() {
    static auto* const threads = new RpcThreads;
    return *threads;
}

void RpcThreads::set_limits(std::size_t most, std::chrono::milliseconds idle) {
    const std::lock_guard guard(mutex_);
    most_ = most;
    idle_time_ = idle;
}

bool RpcThreads::submit(Task task) {
    Task refused;  // destroyed after the mutex is released: its destructor may wait for other threads
    const std::lock_guard guard(mutex_);
    if (busy_ < most_ && !idle_.empty()) {
        Worker& worker = *idle_.back();
        idle_.pop_back();
        ++busy_;
        worker.task = std::move(task);
        worker.given.notify_one();
        return true;
    }
    waiting_.push_back(std::move(task));
    if (busy_ >= most_ || threads_ >= most_ || add_thread() || threads_ > 0) {
        return true;
    }
    refused = std::move(waiting_.back());
    waiting_.pop_back();
    return false;
}

// With the mutex held.
bool RpcThreads::add_thread() {
    try {
        std::thread(&RpcThreads::run, this).detach();
        ++threads_;
        return true;
    } catch (const std::exception&) {  // the kernel gives no thread, or there is no memory
        return false;
    }
}

void RpcThreads::work() {
    {
        const std::lock_guard guard(mutex_);
        ++threads_;
    }
    run();
}

void RpcThreads::run() {
    Worker self;
    std::unique_lock guard(mutex_);
    while (wait(guard, self)) {
        guard.unlock();
        self.task();
        self.task = nullptr;  // without the mutex, as what it holds is destroyed here
        guard.lock();
        --busy_;
    }
    if (--threads_ == 0) {
        ::malloc_trim(0);  // gives the memory of a burst of clients back to the kernel
    }
}

// Waits for a task; false when none has come for idle_time_, and the thread is to end.
bool RpcThreads::wait(std::unique_lock<std::mutex>& guard, Worker& worker) {
    if (busy_ < most_ && !waiting_.empty()) {
        ++busy_;
        worker.task = std::move(waiting_.front());
        waiting_.pop_front();
        return true;
    }
    idle_.push_back(&worker);
    if (worker.given.wait_for(guard, idle_time_, [&] { return worker.task != nullptr; })) {
        return true;  // `submit` has taken the worker out of idle_
    }
    idle_.erase(std::find(idle_.begin(), idle_.end(), &worker));
    return false;
}

}  // namespace platform
