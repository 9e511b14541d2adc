// The pool of threads and its one-shot timers.
#include "platform/thread_pool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/clock.h"
#include "support/machine.h"

namespace platform {
namespace {

// What callbacks share with the test.
struct Scene {
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0, fired = 0, ended = 0;
    bool open = false;

    void wait_for(const int& count, int value) {
        std::unique_lock guard(mutex);
        changed.wait(guard, [&] { return count >= value; });
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
    static void fire(void* context) {
        auto& scene = *static_cast<Scene*>(context);
        const std::lock_guard guard(scene.mutex);
        ++scene.fired;
        scene.changed.notify_all();
    }
};

TEST(ThreadPool, FiresATimerInItsTimeBesideWorkThatDoesNotEnd) {
    const TestMachine machine;
    set_clock({0, 0.001});
    Scene scene;
    constexpr int kTasks = 8;
    for (int i = 0; i < kTasks; ++i) {
        submit_pool_work(create_pool_work(Scene::stay, &scene));
    }
    scene.wait_for(scene.inside, kTasks);
    const auto start = std::chrono::steady_clock::now();
    start_pool_timer(create_pool_timer([](void*) {}, nullptr), 86400000);
    start_pool_timer(create_pool_timer(Scene::fire, &scene), 60000);  // before the other
    scene.wait_for(scene.fired, 1);
    const auto lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lasted, std::chrono::milliseconds(60));
    EXPECT_LT(lasted, std::chrono::milliseconds(86400));
    {
        const std::lock_guard guard(scene.mutex);
        scene.open = true;
        scene.changed.notify_all();
    }
    scene.wait_for(scene.ended, kTasks);
}

}  // namespace
}  // namespace platform
