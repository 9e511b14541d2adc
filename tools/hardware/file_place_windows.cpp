// Windows cannot replace a file that is open, so a named mutex lets readers and writers take turns; a new file is moved
// into place.
#include <windows.h>

#include <array>
#include <cstdlib>
#include <cwchar>

#include "file_place.h"

namespace zorvalis {
namespace {

using Wide = std::array<wchar_t, 1024>;

Wide WideOf(const char* path) {
    Wide wide{};
    MultiByteToWideChar(CP_UTF8, 0, path, -1, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

bool AddFolder(Line& path, const Wide& folder) {
    std::array<char, 3 * std::tuple_size_v<Wide>> text{};
    WideCharToMultiByte(CP_UTF8, 0, folder.data(), -1, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
    return text[0] != '\0' && path.Add(text.data()).Add("\\").whole();
}

}  // namespace

bool AddMachineFolder(Line& path) {
    Wide folder{};
    GetEnvironmentVariableW(L"ZORV_MACHINE", folder.data(), static_cast<DWORD>(folder.size()));
    return AddFolder(path, folder);
}

bool AddOwnFolder(Line& path) {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&AddOwnFolder), &self);
    Wide file{};
    GetModuleFileNameW(self, file.data(), static_cast<DWORD>(file.size()));
    if (wchar_t* const slash = std::wcsrchr(file.data(), L'\\')) {
        *slash = L'\0';
    }
    return AddFolder(path, file);
}

bool ReadWhole(const char* path, char*& data, std::size_t& size) {
    if ((GetFileAttributesW(WideOf(path).data()) & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return false;
    }
    std::FILE* const file = _wfopen(WideOf(path).data(), L"rb");
    if (file == nullptr) {
        return true;
    }
    std::fseek(file, 0, SEEK_END);
    const long whole = std::ftell(file);
    std::rewind(file);
    data = whole >= 0 && static_cast<std::size_t>(whole) <= kLargest
               ? static_cast<char*>(std::malloc(static_cast<std::size_t>(whole) + 1))
               : nullptr;
    size = data != nullptr ? std::fread(data, 1, static_cast<std::size_t>(whole), file) : 0;
    std::fclose(file);
    return true;
}

std::FILE* Create(const char* path) {
    return _wfopen(WideOf(path).data(), L"wb");
}

bool MoveInto(const char* fresh, const char* path) {
    const Wide from = WideOf(fresh);
    const bool moved = MoveFileExW(from.data(), WideOf(path).data(), MOVEFILE_REPLACE_EXISTING) != 0;
    if (!moved) {
        DeleteFileW(from.data());
    }
    return moved;
}

// After five seconds a process that hangs is no longer waited for.
std::intptr_t TakeTurn(FileText::Purpose, const char*) {
    const HANDLE turn = CreateMutexW(nullptr, FALSE, L"Global\\ZorvWinIo64.hardware.json");
    if (turn == nullptr) {
        return -1;
    }
    WaitForSingleObject(turn, 5000);
    return reinterpret_cast<std::intptr_t>(turn);
}

void EndTurn(std::intptr_t turn) {
    if (turn != -1) {
        ReleaseMutex(reinterpret_cast<HANDLE>(turn));
        CloseHandle(reinterpret_cast<HANDLE>(turn));
    }
}

}  // namespace zorvalis
