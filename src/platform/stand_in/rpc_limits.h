// Limits of the local endpoint. Tests lower them, since they cannot wait so long or send so much.
#pragma once

#include <chrono>
#include <cstddef>

namespace platform {

struct RpcLimits {
    std::chrono::milliseconds unread{10000};  // a client that reads no answer for this long is cut off
    std::size_t unread_bytes = 16 << 20;      // so is one with this many bytes of unread answers
    std::chrono::milliseconds thread{20000};  // a thread of RpcThreads ends after this long without a call
    std::size_t all_bytes = 256 << 20;        // of all clients together: calls not answered, answers not read
};

// For endpoints that start from now on. Any thread.
void set_rpc_limits(const RpcLimits& limits);

}  // namespace platform
