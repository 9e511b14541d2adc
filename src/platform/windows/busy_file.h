// Waits out programs that hold a file for a moment: virus scanners and indexers open each new file, and Windows then
// refuses to open, delete or rename it.
#pragma once

#include <windows.h>

#include <string>

namespace platform {

// To be asked right after a refused call: whether another try may succeed. A folder or a read-only file stays refused.
inline bool is_busy(const std::wstring& path) {
    const DWORD error = ::GetLastError();
    if (error != ERROR_ACCESS_DENIED) {
        return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
    }
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    // A file that was deleted while somebody has it open refuses even its attributes.
    const bool busy = attributes == INVALID_FILE_ATTRIBUTES
                          ? ::GetLastError() == ERROR_ACCESS_DENIED
                          : (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) == 0;
    ::SetLastError(error);
    return busy;
}

// Makes `call` until it returns true, at most ten times in a quarter of a second; false leaves its last error in place.
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
