#include "kit.h"

#include <windows.h>

#include <filesystem>
#include <stdexcept>

#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "product_service.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kJournal[] = L"SOFTWARE\\zorv-acceptance";

std::string Environment(const wchar_t* name) {
    wchar_t value[MAX_PATH] = {};
    const DWORD length = ::GetEnvironmentVariableW(name, value, MAX_PATH);
    return length < MAX_PATH ? platform::to_utf8({value, length}) : "";
}

// The package whose name is, or is not, marked as the older one.
std::string Package(bool old) {
    for (const auto& entry : std::filesystem::directory_iterator(platform::to_wide(KitFolder()))) {
        const std::wstring name = entry.path().filename().wstring();
        if (entry.path().extension() == L".msi" && (name.find(L"-old.msi") != std::wstring::npos) == old) {
            return platform::to_utf8(entry.path().wstring());
        }
    }
    return "";
}

}  // namespace

std::string KitFolder() {
    std::wstring path(32768, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return platform::to_utf8(path.substr(0, path.find_last_of(L'\\')));
}

std::string NewPackage() {
    return Package(false);
}

std::string OldPackage() {
    return Package(true);
}

std::string ProgramFolder() {
    return Environment(L"ProgramW6432") + "\\Zorv\\Zorvalis";
}

std::string DataFolder() {
    return Environment(L"ProgramData") + "\\Zorv\\Zorvcore\\Zorvalis";
}

bool IsRegistered() {
    return OpenProduct(SERVICE_QUERY_STATUS) != nullptr;
}

void Keep(const std::string& name, const std::string& bytes) {
    const LSTATUS status = ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kJournal, platform::to_wide(name).c_str(), REG_BINARY,
                                             bytes.data(), static_cast<DWORD>(bytes.size()));
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error("\"" + name +
                                 "\" cannot be kept in the registry: " + ErrorText(static_cast<unsigned long>(status)));
    }
}

std::string Kept(const std::string& name) {
    std::string bytes(65536, '\0');
    auto size = static_cast<DWORD>(bytes.size());
    const LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, kJournal, platform::to_wide(name).c_str(),
                                          RRF_RT_REG_BINARY, nullptr, bytes.data(), &size);
    bytes.resize(status == ERROR_SUCCESS ? size : 0);
    return bytes;
}

void Forget(const std::string& name) {
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kJournal, platform::to_wide(name).c_str());
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kJournal, 0, KEY_READ, &key) == ERROR_SUCCESS) {
        const platform::OwnedKey owned(key);
        DWORD values = 1;
        ::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                           nullptr, nullptr);
        if (values == 0) {
            ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kJournal);
        }
    }
}

bool IsAdministrator() {
    SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
    PSID administrators = nullptr;
    BOOL isMember = FALSE;
    if (::AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0,
                                   0, &administrators) != FALSE) {
        ::CheckTokenMembership(nullptr, administrators, &isMember);
        ::FreeSid(administrators);
    }
    return isMember != FALSE;
}

bool EnableRight(const wchar_t* name) {
    HANDLE token = nullptr;
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token) == FALSE) {
        return false;
    }
    const platform::OwnedHandle owned(token);
    TOKEN_PRIVILEGES rights = {1, {{{}, SE_PRIVILEGE_ENABLED}}};
    return ::LookupPrivilegeValueW(nullptr, name, &rights.Privileges[0].Luid) != FALSE &&
           ::AdjustTokenPrivileges(token, FALSE, &rights, 0, nullptr, nullptr) != FALSE &&
           ::GetLastError() == ERROR_SUCCESS;  // it succeeds, too, where the user lacks the right
}

bool IsWine() {
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

std::string ErrorText(unsigned long error) {
    wchar_t text[512] = {};
    const DWORD length =
        ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
                         nullptr, error, 0, text, 512, nullptr);
    const std::size_t end = std::wstring_view(text, length).find_last_not_of(L' ') + 1;
    return std::to_string(error) + (end == 0 ? "" : " (" + platform::to_utf8({text, end}) + ")");
}

}  // namespace zorvalis::acceptance
