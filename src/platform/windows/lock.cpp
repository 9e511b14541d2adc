// The lock is an unnamed Windows mutex. WAIT_ABANDONED makes the caller its owner and still counts as a failed wait.
#include "platform/lock.h"

#include "platform/windows/handles.h"
#include "platform/windows/wait.h"

namespace platform {

struct Lock::State {
    OwnedHandle mutex{::CreateMutexW(nullptr, FALSE, nullptr)};
};

Lock::Lock() : state_(std::make_shared<State>()) {}

bool Lock::wait(std::uint32_t milliseconds) {
    const DWORD limit = milliseconds == 0 ? INFINITE : wait_milliseconds(milliseconds);
    return ::WaitForSingleObject(state_->mutex.get(), limit) == WAIT_OBJECT_0;
}

void Lock::release() {
    ::ReleaseMutex(state_->mutex.get());
}

}  // namespace platform
