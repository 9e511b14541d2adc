// The local endpoint, the only way in from outside: sets up who may connect, listens, and hands each procedure on to
// the SystemInfoClass of its context.
#pragma once

#include <cstdint>

namespace zorvalis {

// Blocks while the endpoint listens. 0, or the status of the step that failed.
std::uint32_t RpcServerStart();

// From any thread. Calls that run go on; new ones are not taken.
void RpcServerStop();

}  // namespace zorvalis
