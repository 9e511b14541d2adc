// What the generated stubs and the service share on the service's side.
#pragma once

#include "platform/rpc_procedures.h"

namespace platform {

// Sets the table of procedures that the stubs call; the process has one. A call that runs keeps the table that it began
// with. Any thread.
void set_rpc_procedures(const RpcProcedures& procedures);

// Says by which transfer syntax the call comes that the runtime is about to unmarshal on the calling thread. To be said
// before each call: one that the runtime refuses makes no ServedCall, and runs no destructor either.
void call_arrives(bool by_ndr64);

// Marks the calling thread, while the object lives, as one that serves the client's call that has arrived. Callbacks do
// nothing on any other thread (platform/rpc_callback.h).
class ServedCall {
public:
    ServedCall();
    ~ServedCall();
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;

    // Of the call that the calling thread serves; there must be one.
    static bool is_by_ndr64();

private:
    const ServedCall* const outer_;  // the thread serves this one again when a call from within its callback is over
    const bool by_ndr64_;
};

}  // namespace platform
