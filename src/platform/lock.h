// A re-entrant lock private to this process, with a timed wait: the job lock and the event log lock.
// Its owner is a thread; an owner thread that ends leaves the lock abandoned.
#pragma once

#include <cstdint>

namespace platform {

class Lock {
public:
    Lock();
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    // True when the lock was had within `milliseconds`; 0 waits without limit. The thread that waits on an
    // abandoned lock owns it from then on, yet its wait counts as failed. A lock that could not be made never succeeds.
    bool wait(std::uint32_t milliseconds);

    // One release for each wait that gave ownership. Ignored from a thread that is not the owner.
    void release();

    bool valid() const;

private:
    struct State;
    State* state_;
};

}  // namespace platform
