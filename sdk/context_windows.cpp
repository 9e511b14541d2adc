#include "context_windows.h"

#include <windows.h>

#include <memory>

#include "rpc/guard.h"
#include "session.h"

namespace zorvalis_client {
namespace {

constexpr char kEndpoint[] = "ZorvHelpRpcEndpoint";

struct FreeBinding {
    using pointer = handle_t;
    void operator()(handle_t binding) const { ::RpcBindingFree(&binding); }
};

struct FreeText {
    using pointer = RPC_WSTR;
    void operator()(RPC_WSTR text) const { ::RpcStringFreeW(&text); }
};

// The service's own endpoint has to be LocalSystem's. A machine that knows no authentication cannot tell whose it is.
void ExpectLocalSystem(handle_t binding) {
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid;
    if (!::CreateWellKnownSid(WinLocalSystemSid, nullptr, sid, &size)) {
        Check("CreateWellKnownSid", ::GetLastError());
    }
    RPC_SECURITY_QOS_V3_W qos{};
    qos.Version = RPC_C_SECURITY_QOS_VERSION_3;
    qos.Capabilities = RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH;
    qos.IdentityTracking = RPC_C_QOS_IDENTITY_STATIC;
    qos.ImpersonationType = RPC_C_IMP_LEVEL_IDENTIFY;
    qos.Sid = sid;
    const RPC_STATUS status =
        ::RpcBindingSetAuthInfoExW(binding, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_AUTHN_WINNT, nullptr,
                                   RPC_C_AUTHZ_NONE, reinterpret_cast<RPC_SECURITY_QOS*>(&qos));
    Check("RpcBindingSetAuthInfoExW",
          status == RPC_S_UNKNOWN_AUTHN_SERVICE ? RPC_S_OK : static_cast<std::uint32_t>(status));
}

// In words, the numbers that an application meets most.
const char* Meaning(std::uint32_t status) {
    switch (status) {
        case ERROR_ACCESS_DENIED:
            return ": access is denied";
        case ERROR_INVALID_HANDLE:
            return ": the context has ended";
        case RPC_S_SERVER_UNAVAILABLE:
            return ": nobody listens at the endpoint";
        case RPC_S_CALL_FAILED:
            return ": a fault in the call, or the service has ended";
        default:
            return "";
    }
}

}  // namespace

void Check(const char* procedure, std::uint32_t code) {
    if (code != 0) {
        const auto status = static_cast<std::int32_t>(code);  // in words as the application gets it
        throw Failure(std::string(procedure) + " failed" + Meaning(code) + ", status " + std::to_string(status),
                      status);
    }
}

std::wstring Wide(unsigned codePage, const char* text) {
    const DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
    const int size = ::MultiByteToWideChar(codePage, flags, text, -1, nullptr, 0);
    if (size == 0) {
        throw Failure("a text of the call is no UTF-8", ZORVALIS_NO_TEXT);
    }
    std::wstring result(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(codePage, flags, text, -1, result.data(), size);
    result.pop_back();
    return result;
}

void Context::Open(const std::string& endpoint) {
    std::wstring protocol = L"ncalrpc", name = Wide(CP_UTF8, endpoint.empty() ? kEndpoint : endpoint.c_str());
    // Whoever has the endpoint's name learns who calls, and may not act in the caller's name.
    std::wstring options = L"Security=Identification Static True";
    RPC_WSTR text = nullptr;
    const auto unsignedText = [](std::wstring& words) { return reinterpret_cast<RPC_WSTR>(words.data()); };
    Check("RpcStringBindingComposeW", ::RpcStringBindingComposeW(nullptr, unsignedText(protocol), nullptr,
                                                                 unsignedText(name), unsignedText(options), &text));
    const std::unique_ptr<void, FreeText> ownedText(text);
    handle_t binding = nullptr;
    Check("RpcBindingFromStringBindingW", ::RpcBindingFromStringBindingW(text, &binding));
    const std::unique_ptr<void, FreeBinding> ownedBinding(binding);
    if (endpoint.empty()) {
        ExpectLocalSystem(binding);
    }
    const std::uint32_t status = zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding, &context_); });
    // The endpoint is there without its interface while the service starts, and from its stop to its end.
    Check("RemoteOpen", status == RPC_S_UNKNOWN_IF || status == RPC_S_NOT_LISTENING
                            ? std::uint32_t{RPC_S_SERVER_UNAVAILABLE}
                            : status);
}

Context::~Context() {
    if (context_ == nullptr) {
        return;
    }
    if (zorvalis_rpc::Guarded([this] { call_RemoteClose(&context_); }) != 0 && context_ != nullptr) {
        zorvalis_rpc::Guarded([this] { ::RpcSsDestroyClientContext(&context_); });
    }
}

}  // namespace zorvalis_client
