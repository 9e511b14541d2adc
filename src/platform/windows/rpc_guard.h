// Runs a call into the RPC runtime, which raises its failures as exceptions of the system's own kind, which C++ cannot
// catch. The service's callbacks and the clients' calls go through it, on any thread.
#pragma once

#include <cstdint>

namespace platform {

// The status that was raised, of whatever code, 0 for none. Frames between are left without their destructors: `call`
// only calls a stub.
std::uint32_t rpc_guarded(void (*call)(void*), void* context);

template <class Call>
std::uint32_t rpc_guarded(Call call) {
    return rpc_guarded([](void* context) { (*static_cast<Call*>(context))(); }, &call);
}

}  // namespace platform
