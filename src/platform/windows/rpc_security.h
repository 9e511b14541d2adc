// The security descriptor that says who may connect to the endpoint: everyone, and packaged applications that have one
// capability. It owns what it points to.
#pragma once

#include <windows.h>

#include <aclapi.h>

#include "platform/rpc_endpoint.h"
#include "platform/windows/handles.h"

namespace platform {

class RpcSecurity {
public:
    RpcSecurity() = default;
    ~RpcSecurity();
    RpcSecurity(const RpcSecurity&) = delete;
    RpcSecurity& operator=(const RpcSecurity&) = delete;

    // To be called once. 0, or the status of the step that failed.
    RpcStatus set_up(const wchar_t* package);

    SECURITY_DESCRIPTOR* descriptor() { return &descriptor_; }

private:
    RpcStatus derive_capabilities(const wchar_t* package);

    PSID* group_sids_ = nullptr;
    DWORD group_count_ = 0;
    PSID* capability_sids_ = nullptr;
    DWORD capability_count_ = 0;
    Owned<::FreeSid, PSID> everyone_;
    Owned<::LocalFree, PACL> access_list_;
    SECURITY_DESCRIPTOR descriptor_{};
};

}  // namespace platform
