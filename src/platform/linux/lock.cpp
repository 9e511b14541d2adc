// The rules of a Windows mutex, built from a mutex, a condition and the owner's id. A thread that ends abandons its
// locks by the destructor of a thread_local list.
#include "platform/lock.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/clock.h"

namespace platform {

struct Lock::State {
    std::mutex mutex;
    std::condition_variable released;
    std::thread::id owner;  // valid while count > 0
    std::uint32_t count = 0;
    bool abandoned = false;

    void abandon() {
        const std::lock_guard guard(mutex);
        count = 0;
        abandoned = true;
        released.notify_one();
    }

    // The locks that the calling thread owns, which it abandons when it ends.
    struct Owned {
        std::vector<std::shared_ptr<State>> states;

        ~Owned() {
            if (::gettid() == ::getpid()) {
                return;  // the process ends with its main thread
            }
            for (const auto& state : states) {
                state->abandon();
            }
        }
    };
    static thread_local Owned owned;
};

thread_local Lock::State::Owned Lock::State::owned;

// The owner's list may keep the state longer than the Lock.
Lock::Lock() : state_(std::make_shared<State>()) {}

bool Lock::wait(std::uint32_t milliseconds) {
    auto& owned = State::owned.states;
    // Before the lock is taken: push_back below must not fail.
    owned.reserve(owned.size() + 1);
    const auto caller = std::this_thread::get_id();

    std::unique_lock guard(state_->mutex);
    if (state_->count > 0 && state_->owner == caller) {
        ++state_->count;
        return true;
    }
    const auto unowned = [this] { return state_->count == 0; };
    if (milliseconds == 0) {
        state_->released.wait(guard, unowned);
    } else if (!unowned()) {
        guard.unlock();  // scaled_wait reads the machine's clock, which nobody else is to wait for
        const std::chrono::microseconds limit(scaled_wait(milliseconds));
        guard.lock();
        if (!state_->released.wait_for(guard, limit, unowned)) {
            return false;
        }
    }
    state_->owner = caller;
    state_->count = 1;
    owned.push_back(state_);
    return !std::exchange(state_->abandoned, false);
}

void Lock::release() {
    std::shared_ptr<State> last;
    const std::lock_guard guard(state_->mutex);
    if (state_->count == 0 || state_->owner != std::this_thread::get_id() || --state_->count > 0) {
        return;
    }
    auto& owned = State::owned.states;
    const auto entry = std::find(owned.begin(), owned.end(), state_);
    if (entry != owned.end()) {
        last = std::move(*entry);
        owned.erase(entry);
    }
    state_->released.notify_one();
}

}  // namespace platform
