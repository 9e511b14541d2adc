// Junctions, links and redirection trust on the way to the product's files.
#include <windows.h>

#include <winioctl.h>

#include <cstring>
#include <string>

#include "common/files.h"
#include "kit.h"
#include "part.h"
#include "platform/files.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "running_program.h"
#include "steps_machine.h"
#include "user_token.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

constexpr DWORD kUnprivileged = 2;           // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
constexpr DWORD kUntrustedMountPoint = 448;  // ERROR_UNTRUSTED_MOUNT_POINT

// Where the data of a junction lies in what FSCTL_SET_REPARSE_POINT takes. Lengths are bytes.
struct Junction {
    DWORD tag;
    WORD length;
    WORD reserved;
    WORD targetOffset;
    WORD targetLength;
    WORD shownOffset;
    WORD shownLength;
    wchar_t text[MAX_PATH * 2];
};

// A Windows error, or 0.
DWORD MakeJunction(const std::string& link, const std::string& target) {
    const std::wstring shown = platform::to_wide(target);
    const std::wstring path = L"\\??\\" + shown;
    Junction junction = {};
    junction.tag = IO_REPARSE_TAG_MOUNT_POINT;
    junction.targetLength = static_cast<WORD>(path.size() * 2);
    junction.shownOffset = static_cast<WORD>(junction.targetLength + 2);
    junction.shownLength = static_cast<WORD>(shown.size() * 2);
    junction.length = static_cast<WORD>(junction.shownOffset + junction.shownLength + 2 + 8);
    std::memcpy(junction.text, path.c_str(), junction.targetLength);
    std::memcpy(junction.text + path.size() + 1, shown.c_str(), junction.shownLength);
    if (::CreateDirectoryW(platform::to_wide(link).c_str(), nullptr) == FALSE) {
        return ::GetLastError();
    }
    const platform::OwnedHandle folder(
        ::CreateFileW(platform::to_wide(link).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                      FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    DWORD size = 0;
    if (folder.get() == INVALID_HANDLE_VALUE ||
        ::DeviceIoControl(folder.get(), FSCTL_SET_REPARSE_POINT, &junction, junction.length + 8, nullptr, 0, &size,
                          nullptr) == FALSE) {
        return ::GetLastError();
    }
    return ERROR_SUCCESS;
}

// Makes a link of the kind in the first word; what it leads to stands last.
int MakeLink(const std::vector<std::string>& arguments) {
    const std::wstring link = platform::to_wide(arguments.at(1));
    const std::wstring target = platform::to_wide(arguments.at(2));
    DWORD error = ERROR_SUCCESS;
    if (arguments.at(0) == "junction") {
        error = MakeJunction(arguments[1], arguments[2]);
    } else if ((arguments[0] == "symbolic" ? ::CreateSymbolicLinkW(link.c_str(), target.c_str(), kUnprivileged) != 0
                                           : ::CreateHardLinkW(link.c_str(), target.c_str(), nullptr)) == 0) {
        error = ::GetLastError();
    }
    Say(std::to_string(error));
    return 0;
}
const Part kMakeLink("link-make", MakeLink);

bool IsReparsePoint(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesW(platform::to_wide(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// The folder "target" with a file in it, and the junction "junction" to it.
void MakeTarget(Findings& findings) {
    ::CreateDirectoryW(platform::to_wide(WorkFolder::Path("target")).c_str(), nullptr);
    if (!WriteText(WorkFolder::Path("target\\file.txt"), "text")) {
        findings.Fail("a file cannot be made in " + WorkFolder::Path("target"));
    }
    const DWORD error = MakeJunction(WorkFolder::Path("junction"), WorkFolder::Path("target"));
    if (error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED || error == ERROR_CALL_NOT_IMPLEMENTED) {
        findings.Impossible("junctions cannot be made: " + ErrorText(error));
    }
    if (error != ERROR_SUCCESS) {
        findings.Fail("the administrator cannot make a junction: " + ErrorText(error));
    }
}

void SeesLinks(Findings& findings) {
    const WorkFolder folder;
    MakeTarget(findings);
    findings.Expect(!HasLink(WorkFolder::Path("target\\file.txt")), "a path without a link passes");
    findings.Expect(HasLink(WorkFolder::Path("junction\\file.txt")), "a junction on the way is seen");
    findings.Expect(platform::is_link(WorkFolder::Path("junction\\")), "and behind a closing backslash");
    struct {
        const char* name;
        const char* target;
        DWORD flags;
    } const links[] = {{"symbolic.txt", "target\\file.txt", 0},
                       {"symbolic", "target", SYMBOLIC_LINK_FLAG_DIRECTORY},
                       {"nowhere.txt", "missing.txt", 0}};
    for (const auto& link : links) {
        const std::string path = WorkFolder::Path(link.name);
        if (::CreateSymbolicLinkW(platform::to_wide(path).c_str(),
                                  platform::to_wide(WorkFolder::Path(link.target)).c_str(), link.flags) == 0) {
            findings.Expect(false, "the administrator makes " + path + ": " + ErrorText(::GetLastError()));
            continue;
        }
        findings.Expect(IsReparsePoint(path) && HasLink(path), "the symbolic link " + path + " is seen");
    }
    findings.Expect(HasLink(WorkFolder::Path("symbolic\\file.txt")), "and so is one of a folder on the way");
}

// The answer of MakeLink as an ordinary user.
std::string AsOrdinaryUser(Findings& findings, const std::string& kind, const std::string& link,
                           const std::string& target) {
    const platform::OwnedHandle ordinary = UserToken(findings);
    RunningProgram child(PartCommand("link-make", {kind, link, target}), ordinary.get());
    const std::string line = child.Line();
    return child.started() ? line : "not started: " + ErrorText(child.error());
}

void RedirectionTrust(Findings& findings) {
    const WorkFolder folder;
    MakeTarget(findings);
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY policy = {};
    if (::GetProcessMitigationPolicy(::GetCurrentProcess(), ProcessRedirectionTrustPolicy, &policy, sizeof policy) ==
        FALSE) {
        findings.Impossible("this Windows has no redirection trust: " + ErrorText(::GetLastError()));
    }
    findings.Expect(policy.EnforceRedirectionTrust == 1, "this process, which begins as the product does, enforces it");
    const std::string open = WorkFolder::MakeOpen("open");
    findings.ExpectText(AsOrdinaryUser(findings, "junction", open + "\\junction", WorkFolder::Path("target")), "0",
                        "an ordinary user makes a junction");
    findings.Expect(platform::open_file(WorkFolder::Path("junction\\file.txt"), "rb") != nullptr,
                    "the administrator's junction is followed");
    const platform::OwnedHandle file(::CreateFileW(platform::to_wide(open + "\\junction\\file.txt").c_str(),
                                                   GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    const DWORD error = file.get() == INVALID_HANDLE_VALUE ? ::GetLastError() : ERROR_SUCCESS;
    findings.ExpectNumber(error, kUntrustedMountPoint, "the user's junction is not followed");
    findings.Expect(platform::open_file(open + "\\junction\\new.txt", "wb") == nullptr &&
                        !platform::replace_text(open + "\\junction\\new.txt", "text") &&
                        !platform::file_exists(WorkFolder::Path("target\\new.txt")),
                    "nothing is written through it");
}

void LinksByUsers(Findings& findings) {
    const WorkFolder folder;
    const std::string open = WorkFolder::MakeOpen("open");
    WriteText(WorkFolder::Path("file.txt"), "text");
    findings.Saw("a hard link by an ordinary user to a file that it may only read: error " +
                 AsOrdinaryUser(findings, "hard", open + "\\hard.txt", WorkFolder::Path("file.txt")));
    const bool hard = platform::file_exists(open + "\\hard.txt");
    const std::string symbolic =
        AsOrdinaryUser(findings, "symbolic", open + "\\symbolic.txt", WorkFolder::Path("file.txt"));
    if (symbolic == "0" && !IsReparsePoint(open + "\\symbolic.txt")) {
        findings.Impossible("CreateSymbolicLink makes nothing here");
    }
    findings.Expect(!hard, "an ordinary user makes no hard link to the product's files");
    DWORD developer = 0;
    DWORD size = sizeof developer;
    ::RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AppModelUnlock",
                   L"AllowDevelopmentWithoutDevLicense", RRF_RT_REG_DWORD, nullptr, &developer, &size);
    if (developer != 0) {
        findings.Impossible("this machine is in developer mode, in which every user may make symbolic links");
    }
    findings.ExpectNumber(std::strtol(symbolic.c_str(), nullptr, 10), ERROR_PRIVILEGE_NOT_HELD,
                          "an ordinary user makes no symbolic link to put in a file's place");
}

}  // namespace

std::vector<Step> LinkSteps() {
    return {
        {"7.4", "Junctions and symbolic links on the way to a file are seen", SeesLinks, 60, RemoveWorkFolder, false},
        {"7.5", "A junction that an ordinary user has made is not followed", RedirectionTrust, 60, RemoveWorkFolder,
         false},
        {"7.6", "An ordinary user can put neither a hard nor a symbolic link in a file's place", LinksByUsers, 60,
         RemoveWorkFolder, false},
    };
}

}  // namespace zorvalis::acceptance
