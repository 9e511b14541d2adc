// What the stubs call when both transfer syntaxes are offered: where the RPC runtime hands in the calls of each, and by
// which a callback goes out. Each client is served by the one that it agreed on when it bound.
#include <windows.h>

#include <rpc.h>
#include <rpcndr.h>

#include "platform/windows/rpc_interface.h"

extern "C" {

void __RPC_STUB zorv_serve_by_ndr(RPC_MESSAGE* message) {
    platform::call_arrives(false);
    ::NdrServerCall2(message);
}

void __RPC_STUB zorv_serve_by_ndr64(RPC_MESSAGE* message) {
    platform::call_arrives(true);
    ::NdrServerCallAll(message);
}

int zorv_serves_by_ndr64() {
    return platform::ServedCall::is_by_ndr64() ? 1 : 0;
}
}
