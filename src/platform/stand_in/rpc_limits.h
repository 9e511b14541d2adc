// The limits of the local endpoint that tests cannot wait for or fill.
#pragma once

#include <chrono>
#include <cstddef>

namespace platform {

struct RpcLimits {
    std::chrono::milliseconds unread{10000};  // for a client that reads nothing of what waits for it
    std::size_t unread_bytes = 16 << 20;      // for one, in its queue
    std::chrono::milliseconds thread{20000};  // for which one has nothing to do
};

// Of the endpoints from now on.
void set_rpc_limits(const RpcLimits& limits);

}  // namespace platform
