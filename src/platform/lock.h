// A re-entrant lock inside this process, with a timed wait: the job lock and the event log lock. It behaves as a
// Windows mutex: a thread owns it, and an owner that ends without releasing leaves the lock abandoned.
#pragma once

#include <cstdint>
#include <memory>

namespace platform {

class Lock {
public:
    Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    // True when the caller got the lock within `milliseconds` (scaled, see clock.h); 0 waits without limit. On an
    // abandoned lock the caller becomes the owner, but the result is false. Also false when the lock could not be made.
    bool wait(std::uint32_t milliseconds);

    // To be called once for each wait that gave ownership. Does nothing on a thread that is not the owner.
    void release();

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace platform
