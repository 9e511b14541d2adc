// The local endpoint through which clients of this machine call the service. Statuses are the system's, 0 for success.
// On the stand-in machine the endpoint is a socket, run/<name>, which everyone may reach.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/rpc_procedures.h"

namespace platform {

using RpcStatus = std::uint32_t;

struct RpcEndpointSettings {
    const wchar_t* name;
    const wchar_t* package;  // its capability lets packaged applications in; everyone else may connect anyhow
    std::uint32_t most_waiting;
    std::uint32_t most_calls;
};

// The endpoint and the interface are those of the whole process and stay until `stop_rpc_endpoint`; what says who may
// connect is freed with this object.
class RpcEndpoint {
public:
    // Sets up who may connect, the endpoint and its interface, up to the first step that fails. A system that cannot
    // tell capabilities fails with 127, a package without exactly one with 87.
    RpcEndpoint(const RpcEndpointSettings& settings, const RpcProcedures& procedures);
    ~RpcEndpoint();
    RpcEndpoint(const RpcEndpoint&) = delete;
    RpcEndpoint& operator=(const RpcEndpoint&) = delete;

    // That of the step that failed.
    RpcStatus status() const { return status_; }

private:
    struct Security;
    std::unique_ptr<Security> security_;
    RpcStatus status_;
};

// Blocks for as long as the endpoint listens. On the stand-in machine that is until the stop.
RpcStatus listen_for_rpc(std::uint32_t least_threads, std::uint32_t most_calls);

// From any thread, also where the start did not come so far. Calls that run go on.
void stop_rpc_endpoint();

}  // namespace platform
