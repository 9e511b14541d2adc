#include "platform/rpc_endpoint.h"

#include <windows.h>

#include <rpc.h>

#include <mutex>

#include "platform/windows/rpc_interface.h"
#include "platform/windows/rpc_security.h"
#include "zorvalis_rpc.h"

// Not in this compiler's headers.
extern "C" __declspec(dllimport) RPC_STATUS RPC_ENTRY
    RpcServerRegisterIf3(RPC_IF_HANDLE, UUID*, RPC_MGR_EPV*, unsigned, unsigned, unsigned, RPC_IF_CALLBACK_FN*, void*);

namespace platform {
namespace {

constexpr unsigned kAnySize = static_cast<unsigned>(-1);

// Stops may come from several threads.
std::mutex bindingsMutex;
RPC_BINDING_VECTOR* bindings = nullptr;

RPC_WSTR text_of(const wchar_t* text) {
    return reinterpret_cast<RPC_WSTR>(const_cast<wchar_t*>(text));
}

RpcStatus status_of(RPC_STATUS status) {
    return static_cast<RpcStatus>(status);
}

}  // namespace

RpcStatus use_rpc_endpoint(const wchar_t* protocol, std::uint32_t most_calls, const wchar_t* endpoint,
                           const RpcSecurity& security) {
    return status_of(
        ::RpcServerUseProtseqEpW(text_of(protocol), most_calls, text_of(endpoint), &security.state()->descriptor));
}

RpcStatus register_rpc_interface(const RpcProcedures& procedures, std::uint32_t flags, std::uint32_t most_calls,
                                 const RpcSecurity& security) {
    set_rpc_procedures(procedures);
    return status_of(::RpcServerRegisterIf3(serve_Zorvalis_v1_0_s_ifspec, nullptr, nullptr, flags, most_calls, kAnySize,
                                            nullptr, &security.state()->descriptor));
}

RpcStatus inquire_rpc_bindings() {
    const std::lock_guard lock(bindingsMutex);
    return status_of(::RpcServerInqBindings(&bindings));
}

RpcStatus map_rpc_endpoint() {
    const std::lock_guard lock(bindingsMutex);
    if (bindings == nullptr) {  // stopped meanwhile
        return RPC_S_NO_BINDINGS;
    }
    return status_of(::RpcEpRegisterW(serve_Zorvalis_v1_0_s_ifspec, bindings, nullptr, nullptr));
}

RpcStatus listen_for_rpc(std::uint32_t least_threads, std::uint32_t most_calls) {
    return status_of(::RpcServerListen(least_threads, most_calls, FALSE));
}

RpcStatus unregister_rpc_interface() {
    return status_of(::RpcServerUnregisterIf(serve_Zorvalis_v1_0_s_ifspec, nullptr, FALSE));
}

RpcStatus unmap_rpc_endpoint() {
    const std::lock_guard lock(bindingsMutex);
    if (bindings == nullptr) {
        return RPC_S_NO_BINDINGS;
    }
    return status_of(::RpcEpUnregister(serve_Zorvalis_v1_0_s_ifspec, bindings, nullptr));
}

RpcStatus free_rpc_bindings() {
    const std::lock_guard lock(bindingsMutex);
    if (bindings == nullptr) {
        return RPC_S_NO_BINDINGS;
    }
    return status_of(::RpcBindingVectorFree(&bindings));  // clears it too
}

}  // namespace platform
