// The pool of threads and its one-shot timers.
#include "platform/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>

#include "platform/clock.h"
#include "support/machine.h"

namespace platform {
namespace {

std::size_t threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

// What callbacks share with the test. Never destroyed before they have ended.
struct Scene {
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0, ended = 0;
    bool open = false;

    void wait_for(const int& count, int value) {
        std::unique_lock guard(mutex);
        changed.wait(guard, [&] { return count >= value; });
    }
    void let_go() {
        const std::lock_guard guard(mutex);
        open = true;
        changed.notify_all();
    }
    static void stay(void* context) {
        auto& scene = *static_cast<Scene*>(context);
        std::unique_lock guard(scene.mutex);
        ++scene.inside;
        scene.changed.notify_all();
        scene.changed.wait(guard, [&] { return scene.open; });
        ++scene.ended;
        scene.changed.notify_all();
    }
};

TEST(ThreadPool, GrowsPastTasksThatStayAndShrinksAgain) {
    const TestMachine machine;
    set_clock({0, 0.001});  // an idle thread stays for 20 milliseconds
    const std::size_t before = threads();
    Scene scene;
    constexpr int kTasks = 66;  // more than are had at once
    for (int i = 0; i < kTasks; ++i) {
        submit_pool_work(create_pool_work(Scene::stay, &scene));
    }
    scene.wait_for(scene.inside, kTasks);
    scene.let_go();
    scene.wait_for(scene.ended, kTasks);
    while (threads() > before + 1) {  // the clock's own stays
        std::this_thread::yield();
    }
}

TEST(ThreadPool, HoldsTenThousandTimersWithoutAThreadAndFiresThemInTime) {
    const TestMachine machine;
    static std::atomic<int> fired;
    fired = 0;
    const auto start_timers = [](int count, std::uint32_t milliseconds) {
        for (int i = 0; i < count; ++i) {
            start_pool_timer(create_pool_timer([](void*) { ++fired; }, nullptr), milliseconds);
        }
    };
    start_timers(1, 3600000);                                     // the clock's thread is there from now on
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // nor does it look after tasks any more
    const std::size_t before = threads();
    start_timers(10000, 3600000);
    EXPECT_LE(threads(), before);
    set_clock({0, 0.001});
    const auto start = std::chrono::steady_clock::now();
    start_timers(10000, 60000);          // these fire together, or nearly so
    EXPECT_LE(threads(), before + 128);  // 64, and those that are just ending
    while (fired < 10000 && std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
        std::this_thread::yield();
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
    EXPECT_EQ(fired, 10000);
}

}  // namespace
}  // namespace platform
