// A lock with a name, between the threads of all processes of the machine. It is held as long as the object lives, and
// freed when its process ends in any way. A thread that holds it gets it again at once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

class FileLock {
public:
    FileLock() = default;  // not held

    // Waits at most so long for the lock. These are real milliseconds, not scaled by clock.json: others hold the lock
    // for real work. The object must end on the thread that made it. `name` is a file's name without its folder.
    FileLock(const std::string& name, std::uint32_t milliseconds);

    // False when the wait ran out, or the lock could not be made or belongs to a stranger.
    bool held() const { return state_ != nullptr; }

private:
    struct State;
    struct Release {
        void operator()(State* state) const;
    };
    std::unique_ptr<State, Release> state_;
};

}  // namespace platform
