// The local endpoint through which applications of this machine call the service: the RPC runtime (ncalrpc) on Windows,
// a Unix socket run/<name> on the stand-in machine, open to everyone. Statuses are Windows error numbers, 0 for
// success. A process has one endpoint.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/rpc_procedures.h"

namespace platform {

using RpcStatus = std::uint32_t;

struct RpcEndpointSettings {
    const wchar_t* name;
    const wchar_t* package;      // Windows lets in packaged applications that have its capability; others need none
    std::uint32_t most_waiting;  // requests that Windows queues; not used on the stand-in machine
    std::uint32_t most_calls;    // that run at once
};

// Starts the endpoint. The endpoint and its interface stay until `stop_rpc_endpoint`; this object owns only the
// security descriptor that says who may connect.
class RpcEndpoint {
public:
    // Sets up who may connect, then the endpoint, then the interface, up to the first step that fails. A Windows that
    // has no capabilities (before Windows 10) fails with 127, a package that gives not exactly one with 87.
    RpcEndpoint(const RpcEndpointSettings& settings, const RpcProcedures& procedures);
    ~RpcEndpoint();
    RpcEndpoint(const RpcEndpoint&) = delete;
    RpcEndpoint& operator=(const RpcEndpoint&) = delete;

    // 0, or the status of the step that failed.
    RpcStatus status() const { return status_; }

private:
    struct Security;
    std::unique_ptr<Security> security_;
    RpcStatus status_;
};

// Blocks while the endpoint serves calls: on Windows for the life of the process, on the stand-in machine until
// `stop_rpc_endpoint`. Returns a status at once when it cannot listen.
RpcStatus listen_for_rpc(std::uint32_t least_threads, std::uint32_t most_calls);

// Refuses new calls; those that run go on. Any thread, also when the start failed half-way.
void stop_rpc_endpoint();

}  // namespace platform
