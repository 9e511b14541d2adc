// What a security descriptor of the endpoint is made of.
#pragma once

#include <windows.h>

#include <aclapi.h>

#include "platform/rpc_endpoint.h"
#include "platform/windows/handles.h"

namespace platform {

struct RpcSecurity::State {
    State() = default;
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    PSID* group_sids = nullptr;
    DWORD group_count = 0;
    PSID* capability_sids = nullptr;
    DWORD capability_count = 0;
    Owned<::FreeSid, PSID> everyone;
    Owned<::LocalFree, PACL> access_list;
    SECURITY_DESCRIPTOR descriptor{};
};

}  // namespace platform
