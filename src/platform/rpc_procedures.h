// The procedures of the local endpoint. The service fills the table; the floor calls them with what a client sent, on
// threads of the transport, many at once, also on one context. An exception that leaves one ends that call with a fault
// at the client and has no other effect. All but the first two, and their parameters, follow from sdk/zorvalis.idl.
#pragma once

#include <cstdint>

#include "zorvalis_procedures.h"

namespace platform {

// What the service's RemoteOpen returns, never null. The floor passes it to each call of that context and to
// RemoteClose once, after the last call that uses it. Clients see a number instead.
using RpcContext = void*;

// Texts end with a null; on the stand-in machine each of the four of SetMyZorvPP may be null. `output` is a zeroed
// buffer of `outputSize` characters, the terminator included. `cookie` is a number of the client's own, which its
// callbacks bring back.
struct RpcProcedures {
    RpcContext (*RemoteOpen)();
    void (*RemoteClose)(RpcContext context);  // also for a client that died
#define MEMBER(name, parameters, ...) void(*name) parameters;
    ZORVALIS_PROCEDURES(MEMBER)
#undef MEMBER
};

}  // namespace platform
