#include "package_copy.h"

#include <windows.h>

#include <msi.h>
#include <msiquery.h>
#include <setupapi.h>

#include <fstream>

#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

// The first row of a query, for one that has rows.
UINT Query(MSIHANDLE database, const wchar_t* words, MSIHANDLE* row) {
    PMSIHANDLE view;
    UINT error = ::MsiDatabaseOpenViewW(database, words, &view);
    error = error != ERROR_SUCCESS ? error : ::MsiViewExecute(view, 0);
    return error != ERROR_SUCCESS || row == nullptr ? error : ::MsiViewFetch(view, row);
}

UINT WriteCabinet(const std::string& package, const std::string& path) {
    PMSIHANDLE database, row;
    UINT error = ::MsiOpenDatabaseW(platform::to_wide(package).c_str(), reinterpret_cast<LPCWSTR>(MSIDBOPEN_READONLY),
                                    &database);
    error = error != ERROR_SUCCESS
                ? error
                : Query(database, L"SELECT `Data` FROM `_Streams` WHERE `Name` = 'zorvalis.cab'", &row);
    std::ofstream file(platform::to_wide(path).c_str(), std::ios::binary);
    std::string block(1 << 16, '\0');
    for (auto size = static_cast<DWORD>(block.size()); error == ERROR_SUCCESS && size == block.size();) {
        error = ::MsiRecordReadStream(row, 1, block.data(), &size);
        file.write(block.data(), error == ERROR_SUCCESS ? size : 0);
    }
    return error == ERROR_SUCCESS && !file.flush().good() ? ERROR_WRITE_FAULT : error;
}

struct Wanted {
    std::wstring key, target;
    DWORD error = ERROR_FILE_NOT_FOUND;
};

UINT CALLBACK TakeWanted(void* context, UINT notification, UINT_PTR first, UINT_PTR) {
    auto& wanted = *static_cast<Wanted*>(context);
    if (notification == SPFILENOTIFY_FILEINCABINET) {
        auto& found = *reinterpret_cast<FILE_IN_CABINET_INFO_W*>(first);
        if (wanted.key != found.NameInCabinet || wanted.target.size() >= MAX_PATH) {
            return FILEOP_SKIP;
        }
        wanted.target.copy(found.FullTargetName, wanted.target.size());
        found.FullTargetName[wanted.target.size()] = L'\0';
        return FILEOP_DOIT;
    }
    if (notification == SPFILENOTIFY_FILEEXTRACTED) {
        return wanted.error = reinterpret_cast<const FILEPATHS_W*>(first)->Win32Error;
    }
    return notification == SPFILENOTIFY_NEEDNEWCABINET ? ERROR_FILE_NOT_FOUND : NO_ERROR;
}

}  // namespace

unsigned long Unpack(const std::string& package, const std::string& key, const std::string& target) {
    const std::string cabinet = target + ".cab";
    Wanted wanted = {platform::to_wide(key), platform::to_wide(target)};
    if (const UINT error = WriteCabinet(package, cabinet); error != ERROR_SUCCESS) {
        return error;
    }
    const BOOL read = ::SetupIterateCabinetW(platform::to_wide(cabinet).c_str(), 0, TakeWanted, &wanted);
    const DWORD error = read == FALSE ? ::GetLastError() : wanted.error;
    ::DeleteFileW(platform::to_wide(cabinet).c_str());
    return error;
}

unsigned long CopyThatFails(const std::string& package, const std::string& copy) {
    if (::CopyFileW(platform::to_wide(package).c_str(), platform::to_wide(copy).c_str(), FALSE) == FALSE) {
        return ::GetLastError();
    }
    PMSIHANDLE database, row;
    UINT error =
        ::MsiOpenDatabaseW(platform::to_wide(copy).c_str(), reinterpret_cast<LPCWSTR>(MSIDBOPEN_TRANSACT), &database);
    for (const wchar_t* words : {L"SELECT `Target` FROM `CustomAction` WHERE `Action` = 'Start'",  // it is there
                                 L"UPDATE `CustomAction` SET `Target` = 'fail' WHERE `Action` = 'Start'"}) {
        error = error != ERROR_SUCCESS ? error : Query(database, words, words[0] == L'S' ? &row : nullptr);
    }
    return error != ERROR_SUCCESS ? error : ::MsiDatabaseCommit(database);
}

}  // namespace zorvalis::acceptance
