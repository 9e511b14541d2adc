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

    // The loop's thread may take long from here on, up to the end, and then has to leave the loop's things alone. False
    // while another one that was replaced is not back, and in a loop that is not patient: then it has to be quick.
    bool begin_turn();
    bool pause_turn();  // for things of the loop; false on any thread that does not serve it, or is at no turn
    void go_on();
    bool end_turn();  // also where none was begun; false when another thread serves the loop by now

protected:
    struct Replaced {};  // what `serve` throws on a thread that no longer serves the loop

    ~LoopThread() = default;
    virtual void serve() = 0;  // the loop, to its end

    // Throws Replaced when the calling thread owns locks: it would never abandon them, since the loop's thread goes on.
    void leave_locks();

private:
    void run();
    void keep();
    bool start_thread(std::uint32_t replaced);

    std::thread thread_;
    bool patient_ = false;
    std::atomic<bool> over_{false};
    std::atomic<std::uint32_t> turns_{0};  // odd while one goes on
    std::atomic<int> away_{-1};  // replaced threads in their handlers, or with locks; the first thread replaces none
};

}  // namespace platform
