// Stands in for two things of RPC that Wine lacks: the capability function, and callbacks on the connection of a call,
// which go to an endpoint that the client's process has for them.
#include "rpc.h"

#include <ndrtypes.h>

#include <cstring>
#include <cwchar>

#include "capability.h"

namespace doubles {
FARPROC WINAPI find_procedure(HMODULE library, const char* name) {
    constexpr auto derive = [](const wchar_t*, PSID** groups, DWORD* group_count, PSID** sids, DWORD* count) {
        return derive_capabilities(1, groups, group_count, sids, count);
    };
    return is_derive(name) ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(+derive))
                           : ::GetProcAddress(library, name);
}

// A callback has three arguments at most. What its stub reads is constant, so the call gets a copy of it, in which it
// is a call with a binding of its own. Nothing here needs a destructor: the runtime's exceptions pass through.
CLIENT_CALL_RETURN call_client(PMIDL_STUB_DESC stub, PFORMAT_STRING procedure, ...) {
    va_list arguments;
    va_start(arguments, procedure);
    void* const first = va_arg(arguments, void*);
    void* const second = va_arg(arguments, void*);
    void* const third = va_arg(arguments, void*);
    va_end(arguments);
    unsigned long client = 0;
    ::I_RpcBindingInqLocalClientPID(nullptr, &client);
    wchar_t endpoint[64];
    std::swprintf(endpoint, 64, kCallbackEndpoint, client);
    const HANDLE taker = ::OpenEventW(SYNCHRONIZE, FALSE, endpoint);
    if (taker == nullptr || procedure[0] != FC_CALLBACK_HANDLE) {
        return ::NdrClientCall2(stub, procedure, first, second, third);
    }
    ::CloseHandle(taker);

    wchar_t binding_text[80];
    std::swprintf(binding_text, 80, L"ncalrpc:[%ls]", endpoint);
    handle_t binding = nullptr;
    ::RpcBindingFromStringBindingW(reinterpret_cast<RPC_WSTR>(binding_text), &binding);
    MIDL_STUB_DESC redirected = *stub;
    redirected.IMPLICIT_HANDLE_INFO.pPrimitiveHandle = &binding;
    constexpr std::size_t kHeader = 26, kParameter = 6, kParameterCount = 15;
    unsigned char format[kHeader + 3 * kParameter];
    std::memcpy(format, procedure, kHeader + procedure[kParameterCount] * kParameter);
    format[0] = FC_BIND_PRIMITIVE;
    const CLIENT_CALL_RETURN result = ::NdrClientCall2(&redirected, format, first, second, third);
    ::RpcBindingFree(&binding);
    return result;
}

}  // namespace doubles
