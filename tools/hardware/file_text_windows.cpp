// A named mutex keeps readers and writers apart; a new file is moved into place.
#include <windows.h>

#include <array>
#include <cstdlib>
#include <cwchar>

#include "file_text.h"

namespace zorvalis {
namespace {

constexpr DWORD kLongestPath = 1024;
using Path = std::array<wchar_t, kLongestPath>;

bool Append(Path& path, const wchar_t* text) {
    const std::size_t size = std::wcslen(path.data());
    const std::size_t more = std::wcslen(text);
    if (size + more >= path.size()) {
        return false;
    }
    std::wmemcpy(path.data() + size, text, more + 1);
    return true;
}

bool MachineFolder(Path& folder) {
    const DWORD size = GetEnvironmentVariableW(L"ZORV_MACHINE", folder.data(), kLongestPath);
    return size > 0 && size < kLongestPath;
}

bool OwnFolder(Path& folder) {
    HMODULE self = nullptr;
    folder[0] = L'\0';
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&OwnFolder), &self);
    const DWORD size = GetModuleFileNameW(self, folder.data(), kLongestPath);
    wchar_t* const slash = std::wcsrchr(folder.data(), L'\\');
    if (size == 0 || size >= kLongestPath || slash == nullptr) {
        return false;
    }
    *slash = L'\0';
    return true;
}

// Opens the machine's file or else the one beside the library; `folder` tells which.
HANDLE OpenCurrent(Path& folder) {
    for (bool (*const find)(Path&) : {MachineFolder, OwnFolder}) {
        if (!find(folder)) {
            continue;
        }
        Path path = folder;
        if (!Append(path, L"\\hardware.json")) {
            continue;
        }
        const HANDLE file =
            CreateFileW(path.data(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            return file;
        }
    }
    return INVALID_HANDLE_VALUE;
}

// Windows cannot replace a file that is open, so readers take turns with writers. After five seconds a process that
// hangs is no longer waited for.
HANDLE TakeTurn() {
    const HANDLE turn = CreateMutexW(nullptr, FALSE, L"Global\\ZorvWinIo64.hardware.json");
    if (turn != nullptr) {
        WaitForSingleObject(turn, 5000);
    }
    return turn;
}

void EndTurn(HANDLE turn) {
    if (turn != nullptr) {
        ReleaseMutex(turn);
        CloseHandle(turn);
    }
}

}  // namespace

FileText::FileText(Purpose purpose) {
    const HANDLE turn = TakeTurn();
    Path folder;
    const HANDLE file = OpenCurrent(folder);
    LARGE_INTEGER size{};
    if (file != INVALID_HANDLE_VALUE && GetFileSizeEx(file, &size) != 0 &&
        static_cast<std::uint64_t>(size.QuadPart) <= kLargest) {
        data_ = static_cast<char*>(std::malloc(static_cast<std::size_t>(size.QuadPart) + 1));
        DWORD count = 0;
        if (data_ != nullptr && ReadFile(file, data_, static_cast<DWORD>(size.QuadPart), &count, nullptr) != 0) {
            size_ = count;
        }
    }
    if (file != INVALID_HANDLE_VALUE) {
        CloseHandle(file);
    }
    if (purpose == Purpose::change) {
        lock_ = reinterpret_cast<std::intptr_t>(turn);
    } else {
        EndTurn(turn);
    }
}

FileText::~FileText() {
    if (lock_ != -1) {
        EndTurn(reinterpret_cast<HANDLE>(lock_));
    }
    std::free(data_);
}

bool FileText::Replace(std::initializer_list<std::string_view> pieces) {
    // While we have the turn nobody replaces the file, so this finds the folder of the one that was read.
    Path folder;
    const HANDLE current = OpenCurrent(folder);
    if (lock_ == -1 || current == INVALID_HANDLE_VALUE) {
        return false;
    }
    CloseHandle(current);
    Path path = folder;
    Path fresh = folder;
    if (!Append(path, L"\\hardware.json") || !Append(fresh, L"\\.hardware.json.new")) {
        return false;
    }
    const HANDLE file =
        CreateFileW(fresh.data(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    bool whole = true;
    for (const std::string_view piece : pieces) {
        DWORD count = 0;
        whole = whole && WriteFile(file, piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr) != 0 &&
                count == piece.size();
    }
    CloseHandle(file);
    whole = whole && MoveFileExW(fresh.data(), path.data(), MOVEFILE_REPLACE_EXISTING) != 0;
    if (!whole) {
        DeleteFileW(fresh.data());
    }
    return whole;
}

}  // namespace zorvalis
