#include "user_token.h"

#include <sddl.h>

#include "kit.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

using platform::OwnedHandle;
using OwnedMemory = platform::Owned<::LocalFree, void*>;

struct Sid {
    alignas(8) BYTE bytes[SECURITY_MAX_SID_SIZE] = {};
    DWORD size = sizeof bytes;
    explicit Sid(WELL_KNOWN_SID_TYPE type) { ::CreateWellKnownSid(type, nullptr, bytes, &size); }
};

// Windows gives new objects of an administrator to all administrators. Those of this token are to belong to its user.
bool GiveToUser(HANDLE token) {
    const std::wstring user = platform::to_wide(UserOf(token));
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const std::wstring text = L"O:" + user + L"D:(A;;GA;;;SY)(A;;GA;;;" + user + L")";
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr) ==
        FALSE) {
        return false;
    }
    const OwnedMemory memory(descriptor);
    TOKEN_OWNER owner = {};
    TOKEN_DEFAULT_DACL list = {};
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    return ::GetSecurityDescriptorOwner(descriptor, &owner.Owner, &defaulted) != FALSE &&
           ::GetSecurityDescriptorDacl(descriptor, &present, &list.DefaultDacl, &defaulted) != FALSE &&
           ::SetTokenInformation(token, TokenDefaultDacl, &list, sizeof list) != FALSE &&
           (::SetTokenInformation(token, TokenOwner, &owner, sizeof owner) != FALSE ||
            ::GetLastError() == ERROR_INVALID_FUNCTION);  // Wine cannot change a token's owner
}

// Null on failure, with the last error.
OwnedHandle TokenWithoutRights(TOKEN_TYPE type) {
    HANDLE token = nullptr;
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, &token) == FALSE) {
        return nullptr;
    }
    const OwnedHandle own(token);
    Sid administrators(WinBuiltinAdministratorsSid);
    SID_AND_ATTRIBUTES refused = {administrators.bytes, 0};
    if (::CreateRestrictedToken(own.get(), DISABLE_MAX_PRIVILEGE, 1, &refused, 0, nullptr, 0, nullptr, &token) ==
        FALSE) {
        return nullptr;
    }
    OwnedHandle ordinary(token);
    Sid medium(WinMediumLabelSid);
    TOKEN_MANDATORY_LABEL label = {{medium.bytes, SE_GROUP_INTEGRITY}};
    if (!GiveToUser(token) || ::SetTokenInformation(token, TokenIntegrityLevel, &label,
                                                    static_cast<DWORD>(sizeof label) + medium.size) == FALSE) {
        return nullptr;
    }
    if (type == TokenImpersonation) {
        if (::DuplicateTokenEx(token, TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenImpersonation, &token) ==
            FALSE) {
            return nullptr;
        }
        ordinary.reset(token);
    }
    return ordinary;
}

}  // namespace

std::string SidText(PSID sid) {
    wchar_t* text = nullptr;
    if (::ConvertSidToStringSidW(sid, &text) == FALSE) {
        return "";
    }
    const OwnedMemory memory(text);
    return platform::to_utf8(text);
}

std::string UserOf(HANDLE token) {
    alignas(8) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    return ::GetTokenInformation(token, TokenUser, user, sizeof user, &size) == FALSE
               ? ""
               : SidText(reinterpret_cast<TOKEN_USER*>(user)->User.Sid);
}

OwnedHandle UserToken(Findings& findings, TOKEN_TYPE type) {
    OwnedHandle token = TokenWithoutRights(type);
    if (token == nullptr) {
        findings.Fail("a token of an ordinary user cannot be made: " + ErrorText(::GetLastError()));
    }
    return token;
}

}  // namespace zorvalis::acceptance
