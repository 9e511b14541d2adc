// Files and folders held open, so that nobody puts another one in their place between a look and a change, and a walk
// through a folder that follows no link.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/windows/handles.h"

namespace zorvalis {

// The access that it takes for Windows to keep others from renaming or deleting what is open.
constexpr DWORD kHold = FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES;  // FILE_LIST_DIRECTORY is FILE_READ_DATA of a file

constexpr DWORD kLinkMet = 4395;  // ERROR_REPARSE_POINT_ENCOUNTERED, which the headers lack

// Opens a file, a folder or a link itself, below C:\ProgramData; with the rights of a backup program, where this
// process has them. Others may read and write it meanwhile. Null on failure, with its cause in GetLastError: kLinkMet
// when a folder on the way is a link, even one that somebody has made just now.
platform::OwnedHandle OpenItself(const std::wstring& path, DWORD access);

// Null for what is not there.
platform::OwnedHandle OpenIfThere(const std::wstring& path, DWORD access);

BY_HANDLE_FILE_INFORMATION InformationOf(HANDLE opened, const std::wstring& path);
constexpr bool IsLink(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}
constexpr bool IsFolder(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !IsLink(attributes);
}

struct Entry {
    std::wstring path;
    DWORD attributes;
};

// What lies directly in the open folder.
std::vector<Entry> EntriesOf(HANDLE folder, const std::wstring& path);

// The rights of a backup program, which reach what its owner has closed to administrators. A process that may not have
// them goes on without.
void TakeBackupRights();

}  // namespace zorvalis
