// Who may do what: the installed folders, and who may connect to the endpoint.
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "kit.h"
#include "part.h"
#include "platform/windows/handles.h"
#include "platform/windows/rpc_security.h"
#include "platform/windows/wide.h"
#include "running_program.h"
#include "steps_machine.h"
#include "user_token.h"

namespace zorvalis::acceptance {
namespace {

using platform::OwnedHandle;
using OwnedMemory = platform::Owned<::LocalFree, void*>;

constexpr DWORD kChanges = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA |
                           FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER;

// What a token may do with the descriptor's object, by the rights of `mapping`. False when it cannot be told.
bool Allowed(PSECURITY_DESCRIPTOR descriptor, HANDLE token, GENERIC_MAPPING mapping, DWORD& allowed) {
    alignas(8) BYTE privileges[256];
    DWORD size = sizeof privileges;
    BOOL any = FALSE;
    allowed = 0;
    return ::AccessCheck(descriptor, token, MAXIMUM_ALLOWED, &mapping, reinterpret_cast<PRIVILEGE_SET*>(privileges),
                         &size, &allowed, &any) != FALSE;
}

// Opens the file for writing, makes one beside it, and opens it for reading: the errors, one line each.
int TryAccess(const std::vector<std::string>& arguments) {
    const auto open = [](const std::string& path, DWORD access, DWORD disposition) {
        const HANDLE file = ::CreateFileW(
            platform::to_wide(path).c_str(), access, 7, nullptr, disposition,
            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_DELETE_ON_CLOSE * (disposition == CREATE_NEW), nullptr);
        const DWORD error = file == INVALID_HANDLE_VALUE ? ::GetLastError() : ERROR_SUCCESS;
        if (error == ERROR_SUCCESS) {
            ::CloseHandle(file);
        }
        Say(std::to_string(error));
    };
    open(arguments.at(0), FILE_WRITE_DATA, OPEN_EXISTING);
    open(arguments.at(1) + "\\zorv-acceptance.tmp", GENERIC_WRITE | DELETE, CREATE_NEW);
    open(arguments.at(0), FILE_READ_DATA, OPEN_EXISTING);
    return 0;
}
const Part kTryAccess("access-try", TryAccess);

struct Access {
    std::string write, make, read;
};

Access AsOrdinaryUser(Findings& findings, const std::string& file, const std::string& folder) {
    const OwnedHandle token = UserToken(findings);
    RunningProgram user(PartCommand("access-try", {file, folder}), token.get());
    if (!user.started()) {
        findings.Fail("no program can be started as an ordinary user: " + ErrorText(user.error()));
    }
    const std::string write = user.Line();
    const std::string make = user.Line();
    return {write, make, user.Line()};
}

// Ends the step where this Windows lets everybody write everywhere.
void RequireRights(Findings& findings) {
    wchar_t windows[MAX_PATH] = {};
    ::GetWindowsDirectoryW(windows, MAX_PATH);
    const std::string folder = platform::to_utf8(windows);
    if (AsOrdinaryUser(findings, folder + "\\win.ini", folder).make == "0") {
        findings.Impossible("an ordinary user may make files in " + folder + " here");
    }
}

void Folders(Findings& findings) {
    RequireRights(findings);
    const std::string data = DataFolder();
    const std::string root = data.substr(0, data.find("\\Zorvcore"));
    struct {
        std::string path;
        bool hidden;
    } const trees[] = {{ProgramFolder(), false}, {root, true}};
    const OwnedHandle token = UserToken(findings, TokenImpersonation);
    for (const auto& tree : trees) {
        std::vector<std::filesystem::path> paths = {platform::to_wide(tree.path)};
        std::error_code error;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(paths[0], error)) {
            paths.push_back(entry.path());
        }
        int open = 0;
        for (const std::filesystem::path& path : paths) {
            PSECURITY_DESCRIPTOR descriptor = nullptr;
            std::wstring name = path.wstring();
            const DWORD status = ::GetNamedSecurityInfoW(
                name.data(), SE_FILE_OBJECT,
                OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr, nullptr,
                nullptr, nullptr, &descriptor);
            const OwnedMemory memory(descriptor);
            if (status == ERROR_FILE_NOT_FOUND) {
                continue;  // a working copy that has gone since
            }
            DWORD allowed = 0;
            if (status != ERROR_SUCCESS ||
                !Allowed(descriptor, token.get(),
                         {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS}, allowed)) {
                findings.Expect(false, "the access list of " + platform::to_utf8(name) + " can be read: " +
                                           ErrorText(status != ERROR_SUCCESS ? status : ::GetLastError()));
                continue;
            }
            if ((allowed & (kChanges | (tree.hidden ? FILE_READ_DATA : 0))) != 0) {
                char mask[16] = {};
                std::snprintf(mask, sizeof mask, "%08lX", allowed);
                findings.Saw(platform::to_utf8(name) + ": an ordinary user may " + mask);
                ++open;
            }
        }
        findings.ExpectNumber(open, 0,
                              "files and folders of " + std::to_string(paths.size()) + " in " + tree.path +
                                  " that an ordinary user may change" + (tree.hidden ? " or read" : ""));
    }
    const Access program = AsOrdinaryUser(findings, ProgramFolder() + "\\ZorvalisWinService.exe", ProgramFolder());
    findings.Expect(program.write == "5" && program.make == "5" && program.read == "0",
                    "an ordinary user reads the programs and cannot replace them or add to them (" + program.write +
                        ", " + program.make + ", " + program.read + ")");
    const Access records = AsOrdinaryUser(findings, root, root);
    findings.Expect(records.write == "5" && records.make == "5" && records.read == "5",
                    "an ordinary user neither sees nor makes records (" + records.write + ", " + records.make + ", " +
                        records.read + ")");
}

void EndpointDescriptor(Findings& findings) {
    platform::RpcSecurity security;
    // The name that the product gives.
    const platform::RpcStatus status = security.set_up(L"Zorv.Zorvinfo_k7rt2xw94hmpa");
    if (status == ERROR_PROC_NOT_FOUND) {
        findings.Impossible("this Windows has no DeriveCapabilitySidsFromName");
    }
    if (status != 0) {
        findings.Fail("the descriptor cannot be made: " + ErrorText(status));
    }
    wchar_t* text = nullptr;
    if (::ConvertSecurityDescriptorToStringSecurityDescriptorW(security.descriptor(), SDDL_REVISION_1,
                                                               DACL_SECURITY_INFORMATION, &text, nullptr) == FALSE) {
        findings.Fail("the descriptor has no text: " + ErrorText(::GetLastError()));
    }
    const OwnedMemory memory(text);
    const std::string list = platform::to_utf8(text);
    findings.Saw(list);
    findings.Expect(list.find("(A;;GA;;;WD)") != std::string::npos, "everyone may connect");
    // The hash of a name has eight numbers; 1024 says that the capability is an application's own.
    findings.Expect(list.find("(A;;GA;;;S-1-15-3-1024-") != std::string::npos,
                    "and so may containers with the capability");
    findings.ExpectNumber(std::count(list.begin(), list.end(), '('), 2, "entries");
}

}  // namespace

std::vector<Step> AccessSteps() {
    return {
        {"7.27", "Ordinary users may neither change the programs nor see the records", Folders, 60},
        {"7.28", "Everyone, and containers with one capability, may connect to the endpoint", EndpointDescriptor, 60,
         nullptr, false},
    };
}

}  // namespace zorvalis::acceptance
