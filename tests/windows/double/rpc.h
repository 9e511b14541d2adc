// The doubles of RPC, for the executable's import table.
#pragma once

#include <windows.h>

#include <rpc.h>
#include <rpcndr.h>

namespace doubles {

// For the capability function, which then gives one capability.
FARPROC WINAPI find_procedure(HMODULE library, const char* name);

CLIENT_CALL_RETURN call_client(PMIDL_STUB_DESC stub, PFORMAT_STRING procedure, ...);

}  // namespace doubles
