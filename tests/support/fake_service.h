// A small service for the tests of the stand-in machine's service manager, which notes what it is asked for. It runs on
// a thread of a test, or as a process: the test program itself, started by the manager.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/service.h"
#include "platform/stand_in/line_client.h"

class FakeService {
public:
    static constexpr wchar_t kName[] = L"Zorvalis";

    // Controls of its own: one whose handler holds until `let_go`, and one that it answers with 7.
    static constexpr std::uint32_t kHold = 128, kSeven = 129;

    // As a process. With FAKE_SERVICE_FAILS in the environment it stops with exit code 1234.
    static bool is_wanted();
    static int run_process();

    // On a thread.
    FakeService();
    ~FakeService();  // stops it

    void wait_for_state(std::uint32_t state);
    void wait_for_notes(std::size_t count);
    void let_go();
    void join();  // waits for its end by other means

    std::vector<std::string> notes() const;

private:
    static std::uint32_t handle_control(std::uint32_t control, std::uint32_t, void*, void* context);
    void main();
    void hold();
    void report(std::uint32_t state, std::uint32_t exitCode = 0);

    platform::ServiceStatusHandle handle_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool free_ = false;
    std::uint32_t checkpoint_ = 0;
    std::vector<std::string> notes_;
    std::thread thread_;
};

// One line to run/control and its answer; empty when nobody answers.
std::string ask(const std::string& line);

// The states in status.jsonl, in their order.
std::string reported_states();
