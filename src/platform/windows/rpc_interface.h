// What the generated stubs and the service share on the service's side.
#pragma once

#include "platform/rpc_procedures.h"

namespace platform {

// Sets the table of procedures that the stubs call; the process has one. A call that runs keeps the table that it began
// with. Any thread.
void set_rpc_procedures(const RpcProcedures& procedures);

// Marks the calling thread, while the object lives, as one that serves a client's call. Callbacks do nothing on any
// other thread (platform/rpc_callback.h).
class ServedCall {
public:
    ServedCall();
    ~ServedCall();
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;
};

}  // namespace platform
