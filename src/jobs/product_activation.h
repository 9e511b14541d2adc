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

// Makes its own scheduled task when that is missing.
inline void CheckTask() {}

// The pass that the activation's own scheduled task starts.
inline void RunPass() {}

}  // namespace zorvalis::activation
