#include "support/lock_watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "jobs/job_manager.h"

namespace {

// From a thread of its own, which holds none. A lock that its owner has left behind is given up here.
bool is_free() {
    bool had = false;
    std::thread([&] {
        had = zorvalis::JobLock().wait(1);
        zorvalis::JobLock().release();
    }).join();
    return had;
}

class Watch : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo& test) override {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);  // for what the test started
        while (!is_free()) {
            if (std::chrono::steady_clock::now() > end) {
                std::printf("%s.%s leaves the job lock held: the rest is not run\n", test.test_suite_name(),
                            test.name());
                std::fflush(stdout);
                std::_Exit(1);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
};

}  // namespace

void watch_job_lock() {
    testing::UnitTest::GetInstance()->listeners().Append(new Watch);
}
