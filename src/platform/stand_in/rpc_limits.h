// Those limits of the local endpoint that tests lower, since they cannot wait so long or send so much.
#pragma once

#include <chrono>
#include <cstddef>

namespace platform {

struct RpcLimits {
    std::chrono::milliseconds unread{10000};  // a client that reads no answer for so long is cut off
    std::size_t unread_bytes = 16 << 20;      // and so is one for which so many bytes of answers wait
    std::chrono::milliseconds thread{20000};  // a thread of RpcThreads that has no call for so long ends
    std::size_t all_bytes = 256 << 20;        // that wait to be answered or read, of all clients
};

// For endpoints that start from now on. Any thread.
void set_rpc_limits(const RpcLimits& limits);

}  // namespace platform
