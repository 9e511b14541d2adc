// What the access list of the local endpoint amounts to on the stand-in machine: the mode of the socket's file.
#pragma once

#include "platform/rpc_endpoint.h"

namespace platform {

struct RpcSecurity::State {
    unsigned mode = 0600;  // without a descriptor, those of the service's own account
};

}  // namespace platform
