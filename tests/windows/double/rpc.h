// The doubles of RPC, for the executable's import table, and for the clients that it calls back.
#pragma once

#include <windows.h>

#include <rpc.h>
#include <rpcndr.h>

namespace doubles {

// Where a client takes the callbacks that Wine refuses to make: an endpoint and an event of one name, by its process.
constexpr wchar_t kCallbackEndpoint[] = L"ZorvTestCallback%lu";

// For the capability function, which then gives one capability.
FARPROC WINAPI find_procedure(HMODULE library, const char* name);

CLIENT_CALL_RETURN call_client(PMIDL_STUB_DESC stub, PFORMAT_STRING procedure, ...);

}  // namespace doubles
