// Runs a call into the RPC runtime, which reports failures as structured exceptions of Windows, which C++ cannot catch.
// The service's callbacks and the clients' calls go through it. Any thread.
#pragma once

#include <cstdint>

namespace zorvalis_rpc {

// 0, or the status that was raised. Destructors between the raise and here do not run, so `call` must do nothing but
// call a stub.
std::uint32_t Guarded(void (*call)(void*), void* context);

template <class Call>
std::uint32_t Guarded(Call call) {
    return Guarded([](void* context) { (*static_cast<Call*>(context))(); }, &call);
}

}  // namespace zorvalis_rpc
