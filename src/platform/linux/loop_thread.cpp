#include "platform/linux/loop_thread.h"

#include <chrono>
#include <system_error>
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

void LoopThread::begin_turn() {
    caller = this;
    turn = ++turns_;
    turns_.notify_all();  // no system call, but when `keep` sleeps
}

// The turn ends with the next number, which `keep` sets when it replaces the thread.
bool LoopThread::end_turn() {
    std::uint32_t mine = turn;
    return std::exchange(caller, nullptr) == this && turns_.compare_exchange_strong(mine, mine + 1);
}

void LoopThread::leave_locks() {
    if (patient_ && owns_locks()) {
        ++away_;
        start_thread();
        throw Replaced();
    }
}

// Replaces the loop's thread when a turn takes long. Sleeps while there are no turns.
void LoopThread::keep() {
    start_thread();
    for (std::uint32_t seen = 0; !over_;) {
        turns_.wait(seen);
        seen = turns_;
        std::this_thread::sleep_for(kLong);
        if (seen % 2 != 0 && turns_ == seen) {
            ++away_;
            turns_.compare_exchange_strong(seen, seen + 1) ? start_thread() : static_cast<void>(--away_);
        }
    }
}

// Where no thread can be had, the caller serves the loop.
void LoopThread::start_thread() {
    try {
        std::thread([self = shared_from_this()] { self->run(); }).detach();
    } catch (const std::system_error&) {
        run();
    }
}

// A thread that was replaced becomes one of RpcThreads. While it owns locks, handlers leave calls to those, which use
// the same thread again before others.
void LoopThread::run() {
    try {
        serve();
        over_ = true;
        turns_ += 2;
        turns_.notify_all();
    } catch (const Replaced&) {
        const bool owner = owns_locks();
        away_ -= owner ? 0 : 1;
        RpcThreads::get().work();
        away_ -= owner ? 1 : 0;
    }
}

}  // namespace platform
