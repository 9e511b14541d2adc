#include "platform/windows/rpc_security.h"

#include <algorithm>

#include "platform/library.h"

namespace platform {
namespace {

constexpr char kDerive[] = "DeriveCapabilitySidsFromName";
using Derive = BOOL WINAPI(const wchar_t*, PSID**, DWORD*, PSID**, DWORD*);

// Its home, and the name of the set that it belongs to, which leads there on every Windows that has it.
constexpr const wchar_t* kLibraries[] = {L"kernelbase.dll", L"api-ms-win-security-base-l1-2-2.dll"};

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

RpcSecurity::State::~State() {
    free_sids(group_sids, group_count);
    free_sids(capability_sids, capability_count);
}

RpcSecurity::RpcSecurity() : state_(new State) {}

RpcSecurity::~RpcSecurity() {
    delete state_;
}

RpcStatus RpcSecurity::derive_capabilities(const wchar_t* name, std::uint32_t& count) {
    count = 0;
    for (const wchar_t* library_name : kLibraries) {
        const SharedLibrary library(library_name);
        if (auto* const derive = library.function<Derive>(kDerive)) {
            const RpcStatus status = status_of(derive(name, &state_->group_sids, &state_->group_count,
                                                      &state_->capability_sids, &state_->capability_count));
            count = state_->capability_count;
            return status;
        }
    }
    return ERROR_PROC_NOT_FOUND;
}

RpcStatus RpcSecurity::allocate_everyone() {
    SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
    PSID sid = nullptr;
    const RpcStatus status =
        status_of(::AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &sid));
    state_->everyone.reset(sid);
    return status;
}

RpcStatus RpcSecurity::build_access_list() {
    EXPLICIT_ACCESSW entries[] = {all_access(state_->everyone.get(), TRUSTEE_IS_WELL_KNOWN_GROUP),
                                  all_access(*state_->capability_sids, TRUSTEE_IS_UNKNOWN)};
    PACL list = nullptr;
    const RpcStatus status = ::SetEntriesInAclW(2, entries, nullptr, &list);
    state_->access_list.reset(list);
    return status;
}

RpcStatus RpcSecurity::set_descriptor() {
    const bool done = ::InitializeSecurityDescriptor(&state_->descriptor, SECURITY_DESCRIPTOR_REVISION) &&
                      ::SetSecurityDescriptorDacl(&state_->descriptor, TRUE, state_->access_list.get(), FALSE);
    return status_of(done);
}

}  // namespace platform
