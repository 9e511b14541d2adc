// The local endpoint through which clients of this machine call the service: one call for each step of its life. Each
// answers with the system's status, 0 for success. On the stand-in machine the endpoint is a socket, run/<name>, and
// those who may reach that file may call.
#pragma once

#include <cstdint>

#include "platform/rpc_procedures.h"

namespace platform {

using RpcStatus = std::uint32_t;

// Who may connect: two entries, everyone and one capability of packaged applications. It belongs to one thread; what
// was obtained is freed with it.
class RpcSecurity {
public:
    RpcSecurity();
    ~RpcSecurity();
    RpcSecurity(const RpcSecurity&) = delete;
    RpcSecurity& operator=(const RpcSecurity&) = delete;

    // `count` is that of the capabilities which the name derives to. A system without the function fails with 127.
    RpcStatus derive_capabilities(const wchar_t* name, std::uint32_t& count);
    RpcStatus allocate_everyone();
    RpcStatus build_access_list();
    RpcStatus set_descriptor();

    struct State;
    State* state() const { return state_; }

private:
    State* state_;
};

// The steps of the start, in order. The endpoint and the interface are those of the whole process.
RpcStatus use_rpc_endpoint(const wchar_t* protocol, std::uint32_t most_calls, const wchar_t* endpoint,
                           const RpcSecurity& security);
RpcStatus register_rpc_interface(const RpcProcedures& procedures, std::uint32_t flags, std::uint32_t most_calls,
                                 const RpcSecurity& security);
RpcStatus inquire_rpc_bindings();  // kept until free_rpc_bindings
RpcStatus map_rpc_endpoint();

// Blocks for as long as the endpoint listens. On the stand-in machine that is until the interface is unregistered.
RpcStatus listen_for_rpc(std::uint32_t least_threads, std::uint32_t most_calls);

// The steps of the stop, from any thread, also where the start did not come so far. Calls that run go on.
RpcStatus unregister_rpc_interface();
RpcStatus unmap_rpc_endpoint();
RpcStatus free_rpc_bindings();

}  // namespace platform
