#include "platform/thread_pool.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/clock.h"

namespace platform {

struct PoolItem {
    PoolCallback callback;
    void* context;
};

struct PoolWork : PoolItem {};
struct PoolTimer : PoolItem {};

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr auto kNoThread = std::chrono::milliseconds(250);  // until one may be had again; real ones, not scaled

// One thread waits until an item is due and starts a thread of its own for it, so that items that never end keep no
// other waiting. Never destroyed, as its threads run until the process ends.
class Pool {
public:
    static Pool& get() {
        static auto* const pool = new Pool;
        return *pool;
    }

    // Makes the thread that waits, without which nothing is taken on.
    bool ready() {
        const std::lock_guard guard(mutex_);
        try {
            if (!runs_) {
                std::thread(&Pool::run, this).detach();
                runs_ = true;
            }
        } catch (const std::exception&) {  // no thread, or no memory for one
        }
        return runs_;
    }

    void start(SteadyClock::time_point due, const PoolItem& item) {
        const std::lock_guard guard(mutex_);
        items_.emplace(due, item);
        changed_.notify_one();
    }

private:
    void run() {
        for (std::unique_lock guard(mutex_);;) {
            const auto first = items_.begin();
            if (first == items_.end()) {
                changed_.wait(guard);
            } else if (first->first > SteadyClock::now()) {
                changed_.wait_until(guard, SteadyClock::time_point(first->first));
            } else {
                try {
                    std::thread(first->second.callback, first->second.context).detach();
                    items_.erase(first);
                } catch (const std::exception&) {
                    changed_.wait_for(guard, kNoThread);
                }
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<SteadyClock::time_point, PoolItem> items_;  // by when they are due
    bool runs_ = false;
};

std::atomic<bool> items_refused{false};

template <class Item>
Item* create_item(PoolCallback callback, void* context) {
    return !items_refused && Pool::get().ready() ? new Item{{callback, context}} : nullptr;
}

}  // namespace

PoolWork* create_pool_work(PoolCallback callback, void* context) {
    return create_item<PoolWork>(callback, context);
}

void submit_pool_work(PoolWork* work) {
    const std::unique_ptr<PoolWork> submitted(work);
    Pool::get().start(SteadyClock::now(), *submitted);
}

PoolTimer* create_pool_timer(PoolCallback callback, void* context) {
    return create_item<PoolTimer>(callback, context);
}

void start_pool_timer(PoolTimer* timer, std::uint32_t milliseconds) {
    const std::unique_ptr<PoolTimer> started(timer);
    const auto wait = std::chrono::microseconds(scaled_wait(milliseconds));
    Pool::get().start(SteadyClock::now() + wait, *started);
}

void refuse_pool_items(bool refused) {
    items_refused = refused;
}

}  // namespace platform
