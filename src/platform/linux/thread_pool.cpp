#include "platform/thread_pool.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/clock.h"

namespace platform {

struct PoolWork {
    PoolCallback callback;
    void* context;
};

struct PoolTimer {
    PoolCallback callback;
    void* context;
};

namespace {

using SteadyClock = std::chrono::steady_clock;

// So many threads are made at once. Beyond them there is one more only when none has ended its task for a while, so
// that tasks that never end take no place from the others for long.
constexpr std::size_t kUsualThreads = 64;
constexpr auto kStarved = std::chrono::milliseconds(250);  // true ones, since so long do tasks take
constexpr std::uint32_t kIdleMilliseconds = 20000;

struct Task {
    PoolCallback callback;
    void* context;
};

class Pool {
public:
    // Never destroyed, as its threads run until the process ends.
    static Pool& get() {
        static auto* const pool = new Pool;
        return *pool;
    }

    // Makes the thread of the clock, without which nothing is taken on.
    bool ready() {
        const std::lock_guard guard(mutex_);
        try {
            if (!hasClock_) {
                std::thread(&Pool::run_clock, this).detach();
                hasClock_ = true;
            }
        } catch (const std::system_error&) {
        }
        return hasClock_;
    }

    void submit(const Task& task) {
        const std::lock_guard guard(mutex_);
        add(task);
    }

    void submit_at(SteadyClock::time_point time, const Task& task) {
        const std::lock_guard guard(mutex_);
        const auto timer = timers_.emplace(time, task);
        if (timer == timers_.begin()) {
            clock_.notify_one();
        }
    }

private:
    // All with the mutex held.
    void add(const Task& task) {
        tasks_.push_back(task);
        if (tasks_.size() > idle_ && (threads_ >= kUsualThreads || !add_thread())) {
            clock_.notify_one();  // it watches over the tasks that no thread is there for
        }
        task_.notify_one();
    }

    bool add_thread() {
        try {
            std::thread(&Pool::run_tasks, this).detach();
            ++threads_;
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }

    void run_tasks() {
        for (;;) {
            const auto limit = std::chrono::microseconds(scaled_wait(kIdleMilliseconds));
            std::unique_lock guard(mutex_);
            ++idle_;
            const bool some = task_.wait_for(guard, limit, [this] { return !tasks_.empty(); });
            --idle_;
            if (!some) {
                --threads_;
                return;
            }
            const Task task = tasks_.front();
            tasks_.pop_front();
            guard.unlock();
            task.callback(task.context);
            ++ended_;
        }
    }

    void run_clock() {
        std::unique_lock guard(mutex_);
        constexpr auto kNever = SteadyClock::time_point::max();
        auto look = kNever;  // whether a task has ended since the last look
        for (std::uint64_t endedBefore = 0;;) {
            const auto now = SteadyClock::now();
            while (!timers_.empty() && timers_.begin()->first <= now) {
                add(timers_.extract(timers_.begin()).mapped());
            }
            if (tasks_.size() <= idle_) {
                look = kNever;
            } else if (look <= now || look == kNever) {
                if (look != kNever && ended_ == endedBefore) {
                    add_thread();
                }
                endedBefore = ended_;
                look = now + kStarved;
            }
            const auto next = timers_.empty() ? look : std::min(look, timers_.begin()->first);
            if (next == kNever) {
                clock_.wait(guard);
            } else {
                clock_.wait_until(guard, next);
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable task_, clock_;
    std::deque<Task> tasks_;
    std::multimap<SteadyClock::time_point, Task> timers_;
    std::size_t threads_ = 0, idle_ = 0;
    std::atomic<std::uint64_t> ended_{0};  // tasks
    bool hasClock_ = false;
};

std::atomic<bool> itemsRefused{false};

template <class Item>
Item* create_item(PoolCallback callback, void* context) {
    return !itemsRefused && Pool::get().ready() ? new Item{callback, context} : nullptr;
}

}  // namespace

PoolWork* create_pool_work(PoolCallback callback, void* context) {
    return create_item<PoolWork>(callback, context);
}

void submit_pool_work(PoolWork* work) {
    const std::unique_ptr<PoolWork> submitted(work);
    Pool::get().submit({submitted->callback, submitted->context});
}

PoolTimer* create_pool_timer(PoolCallback callback, void* context) {
    return create_item<PoolTimer>(callback, context);
}

void start_pool_timer(PoolTimer* timer, std::uint32_t milliseconds) {
    const std::unique_ptr<PoolTimer> started(timer);
    const auto time = SteadyClock::now() + std::chrono::microseconds(scaled_wait(milliseconds));
    Pool::get().submit_at(time, {started->callback, started->context});
}

void refuse_pool_items(bool refused) {
    itemsRefused = refused;
}

}  // namespace platform
