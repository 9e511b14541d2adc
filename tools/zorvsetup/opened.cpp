#include "opened.h"

#include <algorithm>

#include "platform/windows/busy_file.h"
#include "report.h"

namespace zorvalis {

using platform::OwnedHandle;

namespace {

// Whether Windows has come to what is open by the folders of its path alone. C:\ProgramData itself may be a link.
bool LiesAt(HANDLE opened, const std::wstring& path) {
    const std::wstring tail = path.substr(std::min(path.size(), std::wstring(L"C:\\ProgramData").size()));
    std::vector<std::uint64_t> block(16384);  // 128 KiB, more than any path takes
    if (!::GetFileInformationByHandleEx(opened, FileNameInfo, block.data(),
                                        static_cast<DWORD>(block.size() * sizeof block[0]))) {
        return false;
    }
    const auto& found = *reinterpret_cast<const FILE_NAME_INFO*>(block.data());  // without the drive
    const std::wstring way(found.FileName, found.FileNameLength / sizeof(wchar_t));
    return way.size() >= tail.size() &&
           ::CompareStringOrdinal(way.c_str() + way.size() - tail.size(), -1, tail.c_str(), -1, TRUE) == CSTR_EQUAL;
}

}  // namespace

OwnedHandle OpenItself(const std::wstring& path, DWORD access) {
    OwnedHandle opened;
    const std::wstring name = L"\\\\?\\" + path;  // so that it may be long, or end with a point
    platform::done_in_time(name, [&] {
        const HANDLE file =
            ::CreateFileW(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                          FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        opened.reset(file != INVALID_HANDLE_VALUE ? file : nullptr);
        return opened != nullptr;
    });
    if (opened != nullptr && !LiesAt(opened.get(), path)) {
        opened.reset();
        ::SetLastError(kLinkMet);
    }
    return opened;
}

OwnedHandle OpenIfThere(const std::wstring& path, DWORD access) {
    OwnedHandle opened = OpenItself(path, access);
    if (opened == nullptr && ::GetLastError() != ERROR_FILE_NOT_FOUND && ::GetLastError() != ERROR_PATH_NOT_FOUND) {
        Fail(path, "cannot be opened");
    }
    return opened;
}

BY_HANDLE_FILE_INFORMATION InformationOf(HANDLE opened, const std::wstring& path) {
    BY_HANDLE_FILE_INFORMATION information{};
    if (!::GetFileInformationByHandle(opened, &information)) {
        Fail(path, "does not tell what it is");
    }
    return information;
}

std::vector<Entry> EntriesOf(HANDLE folder, const std::wstring& path) {
    std::vector<Entry> entries;
    std::vector<std::uint64_t> block(8192);
    auto kind = FileIdBothDirectoryRestartInfo;
    while (::GetFileInformationByHandleEx(folder, kind, block.data(),
                                          static_cast<DWORD>(block.size() * sizeof block[0]))) {
        kind = FileIdBothDirectoryInfo;
        const auto* bytes = reinterpret_cast<const BYTE*>(block.data());
        for (DWORD step = 1; step != 0; bytes += step) {
            const auto& entry = *reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(bytes);
            const std::wstring name(entry.FileName, entry.FileNameLength / sizeof(wchar_t));
            if (name != L"." && name != L"..") {
                entries.push_back({path + L"\\" + name, entry.FileAttributes});
            }
            step = entry.NextEntryOffset;
        }
    }
    if (::GetLastError() != ERROR_NO_MORE_FILES) {
        Fail(path, "cannot be listed");
    }
    return entries;
}

void TakeBackupRights() {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token)) {
        return;
    }
    const OwnedHandle owned(token);
    for (const wchar_t* name : {SE_BACKUP_NAME, SE_RESTORE_NAME, SE_TAKE_OWNERSHIP_NAME}) {
        TOKEN_PRIVILEGES rights = {1, {{{}, SE_PRIVILEGE_ENABLED}}};
        if (::LookupPrivilegeValueW(nullptr, name, &rights.Privileges[0].Luid)) {
            ::AdjustTokenPrivileges(token, FALSE, &rights, 0, nullptr, nullptr);
        }
    }
}

}  // namespace zorvalis
