// Sets the table of procedures that the generated stubs call; the process has one.
#pragma once

#include "platform/rpc_procedures.h"

namespace platform {

// A call that runs keeps the table that it began with. Any thread.
void set_rpc_procedures(const RpcProcedures& procedures);

}  // namespace platform
