// A file that another program holds for a moment: virus scanners and indexers open each new one.
#pragma once

#include <windows.h>

#include <string>

namespace platform {

// After a refusal. A folder, or a file that may only be read, stays refused.
inline bool is_busy(const std::wstring& path) {
    const DWORD error = ::GetLastError();
    if (error != ERROR_ACCESS_DENIED) {
        return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
    }
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    // One that is deleted, and still open somewhere, refuses that too.
    const bool busy = attributes == INVALID_FILE_ATTRIBUTES
                          ? ::GetLastError() == ERROR_ACCESS_DENIED
                          : (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) == 0;
    ::SetLastError(error);
    return busy;
}

// Makes the call, which tells by a bool whether it was done, ten times at most in a quarter of a second.
template <class Call>
bool done_in_time(const std::wstring& path, Call call) {
    for (int left = 10; !call(); ::Sleep(25)) {
        if (--left == 0 || !is_busy(path)) {
            return false;
        }
    }
    return true;
}

}  // namespace platform
