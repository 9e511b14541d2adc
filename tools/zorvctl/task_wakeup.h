// What the runner of tasks sleeps for: a moment, the end of a process, a changed file of the machine, a wish to end.
#pragma once

#include <cstdint>
#include <string>

#include "platform/stand_in/descriptor.h"

namespace zorvalis {

class Wakeup {
public:
    // From now on Ctrl-C and requests to end do not end the process. Raises a Failure.
    explicit Wakeup(const std::string& machine);

    // Sleeps for at most so many microseconds, whatever the host's own clock does meanwhile; without a limit for
    // `kNoLimit`, not at all for 0.
    void Wait(std::int64_t microseconds);

    // Forgets the changes of files so far.
    void SkipChanges();

    bool EndWanted() const { return endWanted_; }

    static constexpr std::int64_t kNoLimit = -1;

private:
    void SetTimer(std::int64_t microseconds);

    platform::Descriptor signals_, changes_, timer_;
    bool endWanted_ = false;
};

}  // namespace zorvalis
