#include "windows/callback_endpoint.h"

#include <cstring>
#include <cwchar>
#include <stdexcept>

#include "windows/double/redirected_callback.h"
#include "zorvalis_rpc.h"

// The client's description of the interface has its callbacks where a server's has its procedures.
CallbackEndpoint::CallbackEndpoint() {
    static_assert(sizeof(RPC_CLIENT_INTERFACE) == sizeof interface_);
    std::memcpy(&interface_, call_Zorvalis_v1_0_c_ifspec, sizeof interface_);
    wchar_t endpoint[64];
    std::swprintf(endpoint, 64, doubles::kCallbackEndpoint, ::GetCurrentProcessId());
    wchar_t protocol[] = L"ncalrpc";
    if (::RpcServerUseProtseqEpW(reinterpret_cast<RPC_WSTR>(protocol), 10, reinterpret_cast<RPC_WSTR>(endpoint),
                                 nullptr) != RPC_S_OK ||
        ::RpcServerRegisterIfEx(&interface_, nullptr, nullptr, RPC_IF_AUTOLISTEN, 1234, nullptr) != RPC_S_OK) {
        throw std::runtime_error("no endpoint for callbacks");
    }
    taker_ = ::CreateEventW(nullptr, TRUE, FALSE, endpoint);
}

CallbackEndpoint::~CallbackEndpoint() {
    ::CloseHandle(taker_);
    ::RpcServerUnregisterIf(&interface_, nullptr, TRUE);
}
