#include "platform/linux/loop_thread.h"

#include <chrono>
#include <exception>
#include <utility>

#include "platform/linux/owned_locks.h"
#include "platform/linux/rpc_threads.h"

namespace platform {
namespace {

constexpr auto kLong = std::chrono::milliseconds(5);  // a turn may take this to twice this before the loop goes on

thread_local LoopThread* caller = nullptr;  // whose turn the thread has
thread_local std::uint32_t turn = 0;

}  // namespace

void LoopThread::start(bool patient) {
    patient_ = patient;
    thread_ = std::thread(patient ? &LoopThread::keep : &LoopThread::run, this);
}

void LoopThread::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool LoopThread::begin_turn() {
    const bool begins = patient_ && away_ == 0;
    if (begins) {
        go_on();
    }
    return begins;
}

// A turn pauses and ends with the next number, which a thread sets that replaces this one.
bool LoopThread::pause_turn() {
    std::uint32_t mine = turn;
    return caller == this && turns_.compare_exchange_strong(mine, mine + 1);
}

void LoopThread::go_on() {
    caller = this;
    turn = ++turns_;
    turns_.notify_all();  // no system call, but when `keep` sleeps
}

bool LoopThread::end_turn() {
    const bool serves = caller != this || pause_turn();
    caller = nullptr;
    return serves;
}

// Without a thread the caller stays, and tries again behind the next call.
void LoopThread::leave_locks() {
    if (patient_ && owns_locks() && start_thread(turns_)) {
        throw Replaced();
    }
}

// Replaces the loop's thread when a turn takes long. Sleeps while there are no turns.
void LoopThread::keep() {
    if (!start_thread(0)) {
        run();  // RpcThreads make all calls, since away_ stays as it was
    }
    for (std::uint32_t seen = 0; !over_;) {
        turns_.wait(seen);
        seen = turns_;
        std::this_thread::sleep_for(kLong);
        if (seen % 2 != 0 && turns_ == seen && !start_thread(seen)) {
            --seen;  // tries again
        }
    }
}

// False when no thread can be had. The new one leaves the loop alone when the turn is over before it begins.
bool LoopThread::start_thread(std::uint32_t replaced) {
    try {
        std::thread([self = shared_from_this(), seen = replaced]() mutable {
            if (self->turns_.compare_exchange_strong(seen, (seen | 1) + 1)) {
                ++self->away_;
                self->run();
            }
        }).detach();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// A thread that was replaced ends, which abandons its locks. While it owns some it is first one of RpcThreads: handlers
// leave calls to those, which use the same thread again before others.
void LoopThread::run() {
    try {
        serve();
        over_ = true;
        turns_ += 2;
        turns_.notify_all();
    } catch (const Replaced&) {
        if (owns_locks()) {
            RpcThreads::get().work();
        }
        --away_;
    }
}

}  // namespace platform
