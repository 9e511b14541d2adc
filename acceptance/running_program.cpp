#include "running_program.h"

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
    const std::wstring user = UserOf(token);
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

std::wstring UserOf(HANDLE token) {
    alignas(8) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    wchar_t* name = nullptr;
    if (::GetTokenInformation(token, TokenUser, user, sizeof user, &size) == FALSE ||
        ::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &name) == FALSE) {
        return L"";
    }
    const OwnedMemory memory(name);
    return name;
}

OwnedHandle UserToken(Findings& findings, TOKEN_TYPE type) {
    OwnedHandle token = TokenWithoutRights(type);
    if (token == nullptr) {
        findings.Fail("a token of an ordinary user cannot be made: " + ErrorText(::GetLastError()));
    }
    return token;
}

RunningProgram::RunningProgram(const std::string& command, HANDLE token, const std::string& folder) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (::CreatePipe(&read, &write, &inherited, 0) == FALSE) {
        error_ = ::GetLastError();
        return;
    }
    pipe_.reset(read);
    const OwnedHandle writing(write);
    ::SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = write;
    startup.hStdError = write;
    PROCESS_INFORMATION process = {};
    std::wstring line = platform::to_wide(command);
    const std::wstring current = platform::to_wide(folder);
    // Windows takes a path of more than 260 characters only in this form and not out of a command line.
    const std::wstring program = line.starts_with(L"\"\\\\?\\") ? line.substr(1, line.find(L'"', 1) - 1) : L"";
    const wchar_t* const application = program.empty() ? nullptr : program.c_str();
    // A restricted form of the caller's own token takes no privilege.
    const BOOL started =
        token == nullptr
            ? ::CreateProcessW(application, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                               current.empty() ? nullptr : current.c_str(), &startup, &process)
            : ::CreateProcessAsUserW(token, application, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                     current.empty() ? nullptr : current.c_str(), &startup, &process);
    if (started == FALSE) {
        error_ = ::GetLastError();
        return;
    }
    process_.reset(process.hProcess);
    ::CloseHandle(process.hThread);
}

bool RunningProgram::Read() {
    const bool ended = process_ == nullptr || ::WaitForSingleObject(process_.get(), 10) == WAIT_OBJECT_0;
    bool any = false;
    DWORD size = 0;
    while (::PeekNamedPipe(pipe_.get(), nullptr, 0, nullptr, &size, nullptr) != FALSE && size != 0) {
        char buffer[4096];
        if (::ReadFile(pipe_.get(), buffer, sizeof buffer, &size, nullptr) == FALSE) {
            break;
        }
        text_.append(buffer, size);
        any = true;
    }
    return any || !ended;
}

std::string RunningProgram::Line(int seconds) {
    const ULONGLONG limit = ::GetTickCount64() + seconds * 1000ULL;
    while (text_.find('\n') == std::string::npos && Read() && ::GetTickCount64() < limit) {
    }
    const std::size_t end = text_.find('\n');
    std::string line = text_.substr(0, end);
    text_.erase(0, end == std::string::npos ? end : end + 1);
    line.erase(line.find_last_not_of('\r') + 1);
    return line;
}

bool RunningProgram::Wait(int seconds, std::string& output, DWORD& code) {
    const ULONGLONG limit = ::GetTickCount64() + seconds * 1000ULL;
    while (Read() && ::GetTickCount64() < limit) {
    }
    output = std::move(text_);
    return ::WaitForSingleObject(process_.get(), 0) == WAIT_OBJECT_0 &&
           ::GetExitCodeProcess(process_.get(), &code) != FALSE;
}

void RunningProgram::Kill() {
    if (process_ != nullptr) {
        ::TerminateProcess(process_.get(), ERROR_CANCELLED);
        ::WaitForSingleObject(process_.get(), 10000);
        process_.reset();
    }
}

}  // namespace zorvalis::acceptance
