// The table of procedures behind the interface, of the whole process.
#pragma once

#include "platform/rpc_procedures.h"

namespace platform {

// Calls that run keep the table that they began with.
void set_rpc_procedures(const RpcProcedures& procedures);

}  // namespace platform
