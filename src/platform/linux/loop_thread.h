// The thread that serves a loop. A handler may take long, or leave locks: then it keeps its thread, and another one
// serves the loop on. Most calls are much shorter than waking another thread for them, which this avoids.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

namespace platform {

class LoopThread : public std::enable_shared_from_this<LoopThread> {
public:
    // Throws std::system_error without a thread. Only the thread of a `patient` loop is replaced.
    void start(bool patient);
    void join();  // returns when the loop has ended

    // Any thread. False while another handler keeps the thread that it had, so that the next ones had better not.
    bool may_take_long() const { return patient_ && away_ == 0; }

    // Around what may take long, on the loop's thread. The end is false when another thread serves the loop by now, and
    // on any thread that is at nothing of this loop.
    void begin_turn();
    bool end_turn();

protected:
    struct Replaced {};  // what `serve` throws on a thread that no longer serves the loop

    ~LoopThread() = default;
    virtual void serve() = 0;  // the loop, to its end

    // Throws Replaced when the calling thread owns locks: it would never abandon them, since the loop's thread goes on.
    void leave_locks();

private:
    void run();
    void keep();
    void start_thread();

    std::thread thread_;
    bool patient_ = false;
    std::atomic<bool> over_{false};
    std::atomic<std::uint32_t> turns_{0};  // odd while one goes on
    std::atomic<int> away_{0};             // replaced threads that are in their handlers, or own locks
};

}  // namespace platform
