// The lock is a named mutex of the whole machine, which only LocalSystem and administrators may open.
#include "platform/file_lock.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>

#include "platform/windows/handles.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

using OwnedMemory = Owned<::LocalFree, void*>;

// Any user could make a mutex of that name first and hold it for ever. So only a mutex is waited for whose owner is the
// owner that this process would give it: the administrators, for a process of LocalSystem.
bool is_ours(HANDLE mutex) {
    struct {
        TOKEN_OWNER owner;
        BYTE sid[SECURITY_MAX_SID_SIZE];
    } own;
    DWORD size = 0;
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!::GetTokenInformation(::GetCurrentProcessToken(), TokenOwner, &own, sizeof own, &size) ||
        ::GetSecurityInfo(mutex, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                          &descriptor) != ERROR_SUCCESS) {
        return false;
    }
    const OwnedMemory memory(descriptor);
    return ::EqualSid(owner, own.owner.Owner) != FALSE;
}

// Null when it cannot be opened or belongs to a stranger.
OwnedHandle open_mutex(const std::string& name) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;GA;;;SY)(A;;GA;;;BA)", SDDL_REVISION_1,
                                                                &descriptor, nullptr)) {
        return nullptr;
    }
    const OwnedMemory memory(descriptor);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
    std::wstring full = to_wide(name);
    std::replace(full.begin(), full.end(), L'\\', L'_');
    full.insert(0, L"Global\\Zorvalis ");
    OwnedHandle mutex(::CreateMutexExW(&attributes, full.c_str(), 0, SYNCHRONIZE | MUTEX_MODIFY_STATE | READ_CONTROL));
    return mutex != nullptr && is_ours(mutex.get()) ? std::move(mutex) : nullptr;
}

}  // namespace

struct FileLock::State {
    OwnedHandle mutex;
};

FileLock::FileLock(const std::string& name, std::uint32_t milliseconds) {
    OwnedHandle mutex = open_mutex(name);
    if (mutex == nullptr) {
        return;
    }
    const DWORD result = ::WaitForSingleObject(mutex.get(), milliseconds);
    if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED) {
        state_.reset(new State{std::move(mutex)});
    }
}

void FileLock::Release::operator()(State* state) const {
    ::ReleaseMutex(state->mutex.get());
    delete state;
}

}  // namespace platform
