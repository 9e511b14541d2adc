// Product activation is a subsystem of its own that is not built here. These are the few functions that the others
// call; they do nothing and let every device pass.
#pragma once

#include <cstdint>

namespace zorvalis::activation {

// From the job jobZprpCheckSN, with the pass's time.
inline void CheckSN(std::int64_t) {}

// Whether this device may collect at all.
inline bool IsDeviceClassAllowed() {
    return true;
}

// Its own scheduled task: made when it is missing, and switched off.
inline void CheckTask() {}
inline void DisableTask() {}

// The pass that the activation's own scheduled task starts.
inline void RunPass() {}

}  // namespace zorvalis::activation
