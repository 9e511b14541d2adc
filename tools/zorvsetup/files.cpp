#include "files.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "platform/windows/handles.h"
#include "report.h"

namespace zorvalis {

bool IsOfWindows(const std::wstring& folder) {
    wchar_t windows[MAX_PATH] = L"";
    const UINT length = std::min<UINT>(::GetSystemWindowsDirectoryW(windows, MAX_PATH), MAX_PATH);
    const bool ends = folder.size() <= length || folder[length] == L'\\';  // else it is C:\Windows.old, say
    return ends && ::CompareStringOrdinal(folder.substr(0, length).c_str(), -1, windows, -1, TRUE) == CSTR_EQUAL;
}

void RequireReplaceable(const std::wstring& folder) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    std::error_code error;
    for (const auto& each : std::filesystem::directory_iterator(folder, error)) {
        const std::wstring path = each.path().wstring();
        while (each.is_regular_file(error)) {
            const platform::OwnedHandle opened(
                ::CreateFileW(path.c_str(), DELETE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
            if (opened.get() != INVALID_HANDLE_VALUE) {
                break;
            }
            if (::GetLastError() != ERROR_SHARING_VIOLATION || std::chrono::steady_clock::now() >= deadline) {
                Fail(path, "cannot be replaced");
            }
            ::Sleep(100);
        }
    }
}

}  // namespace zorvalis
