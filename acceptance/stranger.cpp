#include "stranger.h"

#include <lm.h>
#include <sddl.h>
#include <userenv.h>

#include <filesystem>
#include <random>

#include "kit.h"
#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "polling.h"

namespace zorvalis::acceptance {
namespace {

constexpr DWORD kLimit = 40000;  // a scanner may look at the new copy first
constexpr wchar_t kName[] = L"zorv-acceptance";

StrangersEnd Failed(const char* where, DWORD error = ::GetLastError()) {
    return {where, error};
}

// Of all four kinds that a rule for passwords may ask for.
std::wstring NewPassword() {
    std::wstring password = L"aA1!";
    std::random_device random;
    for (int i = 0; i < 32; ++i) {
        password += static_cast<wchar_t>(L'a' + random() % 26);
    }
    return password;
}

// The group of all users has another name in each language.
std::wstring NameOfUsers() {
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid, length = 256, other = 256;
    wchar_t name[256] = {}, domain[256] = {};
    SID_NAME_USE use{};
    return ::CreateWellKnownSid(WinBuiltinUsersSid, nullptr, sid, &size) != FALSE &&
                   ::LookupAccountSidW(nullptr, sid, name, &length, domain, &other, &use) != FALSE
               ? name
               : L"";
}

}  // namespace

StrangersEnd WaitForStranger(const PROCESS_INFORMATION& process) {
    const platform::OwnedHandle owned(process.hProcess);
    const platform::OwnedHandle thread(process.hThread);
    if (::WaitForSingleObject(process.hProcess, kLimit) != WAIT_OBJECT_0) {
        ::TerminateProcess(process.hProcess, ERROR_TIMEOUT);
        return Failed("its end within 40 seconds", ERROR_TIMEOUT);
    }
    StrangersEnd end;
    ::GetExitCodeProcess(process.hProcess, &end.code);
    return end;
}

std::wstring OpenCopy::Folder() {
    wchar_t data[MAX_PATH] = {};
    ::GetEnvironmentVariableW(L"ProgramData", data, MAX_PATH);
    return data + std::wstring(L"\\zorv-acceptance-copy");
}

OpenCopy::OpenCopy(Findings& findings) : program_(platform::to_utf8(OpenCopy::Folder()) + "\\zorv-acceptance.exe") {
    Remove();
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    // Everybody and every container may read and run, administrators and LocalSystem do anything.
    constexpr wchar_t kAccess[] =
        L"D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;WD)(A;OICI;0x1200a9;;;S-1-15-2-1)";
    const BOOL made =
        ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kAccess, SDDL_REVISION_1, &descriptor, nullptr);
    const platform::Owned<::LocalFree, HLOCAL> owned(descriptor);
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, FALSE};
    const std::wstring own = platform::to_wide(KitFolder() + "\\zorv-acceptance.exe");
    if (made == FALSE || ::CreateDirectoryW(OpenCopy::Folder().c_str(), &attributes) == FALSE ||
        ::CopyFileW(own.c_str(), platform::to_wide(program_).c_str(), TRUE) == FALSE) {
        findings.Fail("the kit cannot be copied to where all may run it: " + ErrorText(::GetLastError()));
    }
}

// A scanner may still look at the program that has just ended.
void OpenCopy::Remove() {
    Until(5, [] {
        std::error_code error;
        std::filesystem::remove_all(OpenCopy::Folder(), error);
        return !error;
    });
}

OtherUser::OtherUser() : password_(NewPassword()) {
    Remove();
    std::wstring name = kName, comment = L"Zorvalis acceptance kit";
    USER_INFO_1 user = {};
    user.usri1_name = name.data();
    user.usri1_password = password_.data();
    user.usri1_priv = USER_PRIV_USER;
    user.usri1_comment = comment.data();
    user.usri1_flags = UF_SCRIPT | UF_DONT_EXPIRE_PASSWD;
    if (const DWORD status = ::NetUserAdd(nullptr, 1, reinterpret_cast<BYTE*>(&user), nullptr);
        status != NERR_Success) {
        failure_ = "NetUserAdd: " + ErrorText(status);
        return;
    }
    LOCALGROUP_MEMBERS_INFO_3 member = {name.data()};
    const DWORD status =
        ::NetLocalGroupAddMembers(nullptr, NameOfUsers().c_str(), 3, reinterpret_cast<BYTE*>(&member), 1);
    if (status != NERR_Success && status != ERROR_MEMBER_IN_ALIAS) {
        failure_ = "NetLocalGroupAddMembers: " + ErrorText(status);
    }
}

// With the profile, should Windows have made one.
void OtherUser::Remove() {
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid, length = 256;
    wchar_t domain[256] = {};
    wchar_t* text = nullptr;
    SID_NAME_USE use{};
    const bool isThere = ::LookupAccountNameW(nullptr, kName, sid, &size, domain, &length, &use) != FALSE &&
                         use == SidTypeUser && ::ConvertSidToStringSidW(sid, &text) != FALSE;
    const platform::Owned<::LocalFree, HLOCAL> owned(text);
    if (isThere && ::NetUserDel(nullptr, kName) == NERR_Success) {
        ::DeleteProfileW(text, nullptr, nullptr);
    }
}

// Asks for no profile.
StrangersEnd OtherUser::Run(const std::string& command) const {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    std::wstring line = platform::to_wide(command);
    if (::CreateProcessWithLogonW(kName, L".", password_.c_str(), 0, nullptr, line.data(), CREATE_NO_WINDOW, nullptr,
                                  OpenCopy::Folder().c_str(), &startup, &process) == FALSE) {
        return Failed("CreateProcessWithLogonW");
    }
    return WaitForStranger(process);
}

StrangersEnd RunLow(const std::string& command) {
    HANDLE own = nullptr, copy = nullptr;
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, &own) == FALSE) {
        return Failed("OpenProcessToken");
    }
    const platform::OwnedHandle ownedOwn(own);
    if (::DuplicateTokenEx(own, MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary, &copy) == FALSE) {
        return Failed("DuplicateTokenEx");
    }
    const platform::OwnedHandle token(copy);
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid;
    ::CreateWellKnownSid(WinLowLabelSid, nullptr, sid, &size);
    TOKEN_MANDATORY_LABEL label = {{sid, SE_GROUP_INTEGRITY}};
    if (::SetTokenInformation(token.get(), TokenIntegrityLevel, &label, sizeof label + ::GetLengthSid(sid)) == FALSE) {
        return Failed("SetTokenInformation");
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    std::wstring line = platform::to_wide(command);
    if (::CreateProcessAsUserW(token.get(), nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                               OpenCopy::Folder().c_str(), &startup, &process) == FALSE) {
        return Failed("CreateProcessAsUserW");
    }
    return WaitForStranger(process);
}

}  // namespace zorvalis::acceptance
