// Waits for something that comes by itself.
#pragma once

#include <chrono>
#include <thread>

namespace zorvalis::acceptance {

// Asks `happened` until it says so, at least once and then for `seconds`; returns what it said last.
template <class Condition>
bool Until(int seconds, const Condition& happened) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (;;) {
        if (happened()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace zorvalis::acceptance
