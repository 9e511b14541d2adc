// A lock of a name between processes, for as long as the object lives. Re-entrant for its thread; a process that ends
// gives its locks up.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

class FileLock {
public:
    FileLock() = default;  // holds nothing

    // Waits for at most so many milliseconds, real ones, not scaled by clock.json: others hold the lock for real work.
    // Ends on the thread that made it. `name` is a file's bare name.
    FileLock(const std::string& name, std::uint32_t milliseconds);

    // False after a wait in vain, and where there can be no lock.
    bool held() const { return state_ != nullptr; }

private:
    struct State;
    struct Release {
        void operator()(State* state) const;
    };
    std::unique_ptr<State, Release> state_;
};

}  // namespace platform
