// The endpoint by the RPC runtime, over ncalrpc, with the stubs that the build generates from sdk/zorvalis.idl.
#include "platform/rpc_endpoint.h"

#include <windows.h>

#include <rpc.h>

#include <mutex>

#include "platform/windows/rpc_interface.h"
#include "platform/windows/rpc_security.h"
#include "zorvalis_rpc.h"

// mingw's import library has this function, its headers do not.
extern "C" __declspec(dllimport) RPC_STATUS RPC_ENTRY
    RpcServerRegisterIf3(RPC_IF_HANDLE, UUID*, RPC_MGR_EPV*, unsigned, unsigned, unsigned, RPC_IF_CALLBACK_FN*, void*);

namespace platform {
namespace {

constexpr unsigned kAnySize = static_cast<unsigned>(-1);  // no limit on what a call carries

// Guards `bindings`: several threads may stop the endpoint, also while another starts it.
std::mutex bindings_mutex;
RPC_BINDING_VECTOR* bindings = nullptr;

RPC_WSTR text_of(const wchar_t* text) {
    return reinterpret_cast<RPC_WSTR>(const_cast<wchar_t*>(text));
}

RpcStatus map_endpoint() {
    const std::lock_guard lock(bindings_mutex);
    const RPC_STATUS status = ::RpcServerInqBindings(&bindings);  // kept until the stop
    return static_cast<RpcStatus>(
        status == RPC_S_OK ? ::RpcEpRegisterW(serve_Zorvalis_v1_0_s_ifspec, bindings, nullptr, nullptr) : status);
}

RpcStatus start(const RpcEndpointSettings& settings, const RpcProcedures& procedures, RpcSecurity& security) {
    if (const RpcStatus failure = security.set_up(settings.package); failure != 0) {
        return failure;
    }
    RPC_STATUS status = ::RpcServerUseProtseqEpW(text_of(L"ncalrpc"), settings.most_waiting, text_of(settings.name),
                                                 security.descriptor());
    if (status == RPC_S_OK) {
        set_rpc_procedures(procedures);
        status = ::RpcServerRegisterIf3(serve_Zorvalis_v1_0_s_ifspec, nullptr, nullptr,
                                        RPC_IF_AUTOLISTEN | RPC_IF_ALLOW_LOCAL_ONLY, settings.most_calls, kAnySize,
                                        nullptr, security.descriptor());
    }
    return status == RPC_S_OK ? map_endpoint() : static_cast<RpcStatus>(status);
}

}  // namespace

struct RpcEndpoint::Security : RpcSecurity {};

RpcEndpoint::RpcEndpoint(const RpcEndpointSettings& settings, const RpcProcedures& procedures)
    : security_(new Security), status_(start(settings, procedures, *security_)) {}

RpcEndpoint::~RpcEndpoint() = default;

RpcStatus listen_for_rpc(std::uint32_t least_threads, std::uint32_t most_calls) {
    return static_cast<RpcStatus>(::RpcServerListen(least_threads, most_calls, FALSE));
}

void stop_rpc_endpoint() {
    ::RpcServerUnregisterIf(serve_Zorvalis_v1_0_s_ifspec, nullptr, FALSE);
    const std::lock_guard lock(bindings_mutex);
    if (bindings != nullptr) {
        ::RpcEpUnregister(serve_Zorvalis_v1_0_s_ifspec, bindings, nullptr);
        ::RpcBindingVectorFree(&bindings);  // sets it to null too
    }
}

}  // namespace platform
