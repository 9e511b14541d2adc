// The locks (platform/lock.h) that the calling thread owns, and abandons when it ends.
#pragma once

namespace platform {

bool owns_locks();

}  // namespace platform
