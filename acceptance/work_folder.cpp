#include "work_folder.h"

#include <windows.h>

#include <sddl.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "kit.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kFolder[] = "C:\\ProgramData\\zorv-acceptance";

void MakeFolder(const std::string& path, const wchar_t* rights) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ::ConvertStringSecurityDescriptorToSecurityDescriptorW(rights, SDDL_REVISION_1, &descriptor, nullptr);
    const platform::Owned<::LocalFree, void*> memory(descriptor);
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, FALSE};
    if (::CreateDirectoryW(platform::to_wide(path).c_str(), &attributes) == FALSE) {
        throw std::runtime_error(path + " cannot be made: " + ErrorText(::GetLastError()));
    }
}

// `path` is in the form \\?\, since steps make long ones.
void RemoveTree(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        ::DeleteFileW(path.c_str());
        return;
    }
    WIN32_FIND_DATAW found;
    const HANDLE search = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0
                              ? ::FindFirstFileW((path + L"\\*").c_str(), &found)
                              : INVALID_HANDLE_VALUE;
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if (name != L"." && name != L"..") {
                RemoveTree(path + L"\\" + name);
            }
        } while (::FindNextFileW(search, &found) != FALSE);
        ::FindClose(search);
    }
    ::RemoveDirectoryW(path.c_str());
}

}  // namespace

WorkFolder::WorkFolder() {
    RemoveWorkFolder();
    MakeFolder(kFolder, L"D:P(A;OICI;GA;;;SY)(A;OICI;GA;;;BA)(A;OICI;GRGX;;;WD)");
}

WorkFolder::~WorkFolder() {
    RemoveWorkFolder();
}

std::string WorkFolder::Path(const std::string& name) {
    return name.empty() ? kFolder : std::string(kFolder) + "\\" + name;
}

std::string WorkFolder::MakeOpen(const std::string& name) {
    MakeFolder(Path(name), L"D:P(A;OICI;GA;;;WD)");
    return Path(name);
}

void RemoveWorkFolder() {
    RemoveFolder(kFolder);
}

void RemoveFolder(const std::string& path) {
    RemoveTree(L"\\\\?\\" + platform::to_wide(path));
}

bool WriteText(const std::string& path, const std::string& text) {
    std::ofstream file(std::filesystem::path(platform::to_wide(path)), std::ios::binary | std::ios::trunc);
    file << text;
    return file.flush().good();
}

std::string ReadText(const std::string& path) {
    std::ifstream file(std::filesystem::path(platform::to_wide(path)), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace zorvalis::acceptance
