// The doubles of RPC, for the executable's import table.
#pragma once

#include <windows.h>

#include <rpc.h>
#include <rpcndr.h>

namespace doubles {

// capabilities.txt says how many capabilities there are (none: one), "missing" for no function, "failed" for error 5.
FARPROC WINAPI find_procedure(HMODULE library, const char* name);

CLIENT_CALL_RETURN call_client(PMIDL_STUB_DESC stub, PFORMAT_STRING procedure, ...);

}  // namespace doubles
