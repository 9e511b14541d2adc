// Runs a call into the RPC runtime, which reports failures as structured exceptions of Windows, which C++ cannot catch.
// The service's callbacks and the clients' calls go through it. Any thread.
#pragma once

#include <cstdint>

namespace platform {

// 0, or the status that was raised. Destructors between the raise and here do not run, so `call` must do nothing but
// call a stub.
std::uint32_t rpc_guarded(void (*call)(void*), void* context);

template <class Call>
std::uint32_t rpc_guarded(Call call) {
    return rpc_guarded([](void* context) { (*static_cast<Call*>(context))(); }, &call);
}

}  // namespace platform
