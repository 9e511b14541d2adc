// DeriveCapabilitySidsFromName is looked up at run time, the rest is linked.
#include "platform/windows/rpc_security.h"

#include <algorithm>

#include "platform/library.h"

namespace platform {
namespace {

constexpr char kDerive[] = "DeriveCapabilitySidsFromName";
using Derive = BOOL WINAPI(const wchar_t*, PSID**, DWORD*, PSID**, DWORD*);

// Where the function is looked for: the library that holds it, then the API set that forwards to it. Windows before 10
// has neither, so it is not linked.
constexpr const wchar_t* kLibraries[] = {L"kernelbase.dll", L"api-ms-win-security-base-l1-2-2.dll"};

// An array from DeriveCapabilitySidsFromName: each entry and the array itself are freed.
void free_sids(PSID* sids, DWORD count) {
    if (sids != nullptr) {
        std::for_each(sids, sids + count, ::LocalFree);
        ::LocalFree(sids);
    }
}

EXPLICIT_ACCESSW all_access(PSID sid, TRUSTEE_TYPE type) {
    EXPLICIT_ACCESSW entry{};
    entry.grfAccessPermissions = GENERIC_ALL;
    entry.grfAccessMode = SET_ACCESS;
    entry.grfInheritance = NO_INHERITANCE;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = type;
    entry.Trustee.ptstrName = static_cast<wchar_t*>(sid);
    return entry;
}

RpcStatus status_of(BOOL done) {
    return done ? ERROR_SUCCESS : ::GetLastError();
}

}  // namespace

RpcSecurity::~RpcSecurity() {
    free_sids(group_sids_, group_count_);
    free_sids(capability_sids_, capability_count_);
}

RpcStatus RpcSecurity::derive_capabilities(const wchar_t* package) {
    for (const wchar_t* library_name : kLibraries) {
        const SharedLibrary library(library_name);
        if (auto* const derive = library.function<Derive>(kDerive)) {
            return status_of(derive(package, &group_sids_, &group_count_, &capability_sids_, &capability_count_));
        }
    }
    return ERROR_PROC_NOT_FOUND;
}

RpcStatus RpcSecurity::set_up(const wchar_t* package) {
    if (const RpcStatus status = derive_capabilities(package); status != ERROR_SUCCESS || capability_count_ != 1) {
        return status != ERROR_SUCCESS ? status : ERROR_INVALID_PARAMETER;
    }
    SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
    PSID sid = nullptr;
    if (!::AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &sid)) {
        return ::GetLastError();
    }
    everyone_.reset(sid);
    EXPLICIT_ACCESSW entries[] = {all_access(sid, TRUSTEE_IS_WELL_KNOWN_GROUP),
                                  all_access(*capability_sids_, TRUSTEE_IS_UNKNOWN)};
    PACL list = nullptr;
    if (const DWORD error = ::SetEntriesInAclW(2, entries, nullptr, &list); error != ERROR_SUCCESS) {
        return error;
    }
    access_list_.reset(list);
    return status_of(::InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) &&
                     ::SetSecurityDescriptorDacl(&descriptor_, TRUE, list, FALSE));
}

}  // namespace platform
