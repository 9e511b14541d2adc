// What lies in the place of the product's folders before it is installed. Each step installs, looks, and purges.
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <filesystem>

#include "installer_steps.h"
#include "kit.h"
#include "package.h"
#include "package_state.h"
#include "part.h"
#include "platform/files.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "running_program.h"
#include "steps_package.h"
#include "system_part.h"
#include "user_token.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

namespace fs = std::filesystem;

constexpr char kPlanted[] = "planted in the product's place";
constexpr char kText[] = "zorv-acceptance";
constexpr char kFile[] = "\\zorv-acceptance.txt";

bool IsThere(const std::string& path) {
    return ::GetFileAttributesW(platform::to_wide(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

// What was moved aside, by its new name.
std::string Aside(const std::string& name) {
    return DataFolder() + "-planted\\" + name;
}

// A machine without product and folders of the maker; both are away again with the object, and so is the work folder.
class Planting {
public:
    explicit Planting(Findings& findings) : findings_(findings) {
        NeedNoProduct(findings);
        if (IsThere(MakersFolder()) || HasOthersRecords()) {
            findings.Impossible("folders or settings of the maker are here, which the kit would delete");
        }
        Keep(kPlanted, "1");
    }
    ~Planting() { TakePlanted(); }
    Planting(const Planting&) = delete;
    Planting& operator=(const Planting&) = delete;

    void Installs() const {
        Keep(kOwnInstallation, "1");
        ExpectInstaller(findings_, 0, "/i", NewPackage());
    }

    // Expects that an installation fails, says why in zorvsetup's log, and leaves nothing.
    void IsRefused(const std::string& words) const {
        const std::size_t before = SetupLog().size();
        Keep(kOwnInstallation, "1");
        ExpectInstaller(findings_, InstallFailure(), "/i", NewPackage());
        const std::string log = SetupLog().substr(before);
        if (!findings_.Expect(log.find(words) != std::string::npos, "zorvsetup's log says: " + words)) {
            findings_.Saw(log.substr(0, 2000));
        }
        if (IsRegistered()) {
            Purge();
        }
        Forget(kOwnInstallation);
        ExpectTakenBack(findings_);
    }

    // Expects that nothing is left, of what was planted either.
    void Purge() const {
        if (const std::string code = InstalledCode(); !code.empty()) {
            ExpectInstaller(findings_, 0, "/x", code, "PURGE=1");
        }
        if (Until(10, [] { return !IsRegistered(); })) {
            Forget(kOwnInstallation);
        }
        findings_.Expect(!IsThere(MakersFolder()), MakersFolder() + " is gone, with what was moved aside");
    }

private:
    Findings& findings_;
    const WorkFolder folder_;
};

// Folder by folder down to the first word's, and a file in it: as who runs this.
int Plant(const std::vector<std::string>& arguments) {
    std::error_code error;
    fs::create_directories(platform::to_wide(arguments.at(0)), error);
    const bool written = arguments.size() == 1 || WriteText(arguments[0] + arguments[1], kText);
    Say(error ? error.message() : written ? "planted" : "the file cannot be written");
    return 0;
}
const Part kPlant("planted-make", Plant);

// Opens the folder, shares it with nobody, and keeps it.
int Hold(const std::vector<std::string>& arguments) {
    const platform::OwnedHandle folder(::CreateFileW(platform::to_wide(arguments.at(0)).c_str(), FILE_LIST_DIRECTORY, 0,
                                                     nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    Say(folder.get() == INVALID_HANDLE_VALUE ? ErrorText(::GetLastError()) : "held");
    ::Sleep(kInstallSeconds * 1000);
    return 0;
}
const Part kHold("planted-hold", Hold);

int TellUser(const std::vector<std::string>&) {
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token);
    const platform::OwnedHandle owned(token);
    Say(UserOf(token));
    return 0;
}
const Part kTellUser("planted-user", TellUser);

// A part that runs as an ordinary user, and what it says first.
class AsUser {
public:
    AsUser(Findings& findings, const std::string& part, const std::vector<std::string>& arguments)
        : token_(UserToken(findings)), program_(PartCommand(part, arguments), token_.get()), line(program_.Line()) {
        if (!program_.started()) {
            findings.Fail("a program can be started as an ordinary user: " + ErrorText(program_.error()));
        }
    }

private:
    platform::OwnedHandle token_;
    RunningProgram program_;

public:
    const std::string line;
};

void PlantAsUser(Findings& findings, const std::string& folder, const std::string& file = "") {
    const std::string line =
        AsUser(findings, "planted-make", file.empty() ? std::vector{folder} : std::vector{folder, file}).line;
    if (line != "planted") {
        findings.Fail("an ordinary user makes " + folder + file + ": " + line);
    }
}

// By a policy what an administrator makes may belong to himself. Wine knows one owner only, and keeps that one.
void GiveToAdministrators(const std::string& path) {
    PSID owner = nullptr;
    ::ConvertStringSidToSidW(L"BA", &owner);
    const platform::Owned<::LocalFree, PSID> owned(owner);
    std::wstring name = platform::to_wide(path);
    ::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, owner, nullptr, nullptr, nullptr);
}

// Ends the step where LocalSystem is no other user than this one.
void NeedLocalSystem(Findings& findings) {
    const SystemPart system(WorkFolder::Path("user.txt"), "planted-user", {});
    if (system.error() != 0 || !system.Wait(30)) {
        findings.Fail("a service of the kit's runs: " + ErrorText(system.error()));
    }
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token);
    const platform::OwnedHandle owned(token);
    if (system.output().starts_with(UserOf(token))) {
        findings.Impossible("LocalSystem is the same user as this one here");
    }
}

}  // namespace

void RefusesHeldFolder(Findings& findings) {
    const Planting planting(findings);
    PlantAsUser(findings, DataFolder(), kFile);
    {
        const AsUser holder(findings, "planted-hold", {DataFolder()});
        findings.ExpectText(holder.line, "held", "an ordinary user holds the folder that it has made");
        planting.IsRefused(DataFolder() + " cannot be opened");
    }
    findings.ExpectText(ReadText(DataFolder() + kFile), kText, "the file in it");
}

void RefusesJunction(Findings& findings) {
    const Planting planting(findings);
    const std::string target = WorkFolder::MakeOpen("target");
    const std::string before = AccessText(target);
    PlantAsUser(findings, DataFolder().substr(0, DataFolder().rfind('\\')));
    const std::string error = AsUser(findings, "link-make", {"junction", DataFolder(), target}).line;
    if (error == std::to_string(ERROR_INVALID_FUNCTION) || error == std::to_string(ERROR_NOT_SUPPORTED) ||
        error == std::to_string(ERROR_CALL_NOT_IMPLEMENTED)) {
        findings.Impossible("junctions cannot be made: error " + error);
    }
    findings.ExpectText(error, "0", "the error of an ordinary user that makes a junction");
    planting.IsRefused("a link or junction stands in the place of " + DataFolder());
    findings.ExpectText(AccessText(target), before, "owner and access list of what it leads to");
    std::error_code ignored;
    findings.Expect(fs::is_empty(platform::to_wide(target), ignored), "nothing was put there");
}

void MovesLinksAside(Findings& findings) {
    const Planting planting(findings);
    const std::string other = WorkFolder::Path("other.txt");
    const std::string link = DataFolder() + kFile, kept = DataFolder() + "\\zorv-acceptance-kept.txt";
    std::error_code error;
    fs::create_directories(platform::to_wide(DataFolder()), error);
    if (!WriteText(other, kText) || !WriteText(kept, kText) ||
        ::CreateHardLinkW(platform::to_wide(link).c_str(), platform::to_wide(other).c_str(), nullptr) == FALSE) {
        findings.Fail("files and a hard link can be made: " + ErrorText(::GetLastError()));
    }
    for (const std::string& path : {DataFolder(), kept}) {
        GiveToAdministrators(path);
    }
    const std::string symbolic = DataFolder() + "\\zorv-acceptance-link";
    ::CreateSymbolicLinkW(platform::to_wide(symbolic).c_str(), platform::to_wide(other).c_str(), 0);
    const bool linked = platform::is_link(symbolic);
    if (!linked) {
        findings.Saw("CreateSymbolicLink makes nothing here");
    }
    const std::string before = AccessText(other);
    planting.Installs();
    findings.Expect(!IsThere(link), "the second name of a file is no longer in " + DataFolder());
    findings.ExpectText(ReadText(Aside("1-zorv-acceptance.txt")), kText, "it was moved to " + Aside("") + ", its text");
    if (linked) {
        findings.Expect(!platform::is_link(symbolic) && platform::is_link(Aside("1-zorv-acceptance-link")),
                        "a symbolic link was moved there, too");
    }
    findings.ExpectText(ReadText(kept), kText, "a file of the administrators stays, its text");
    planting.Purge();
    findings.ExpectText(ReadText(other), kText, "the file by its first name");
    findings.ExpectText(AccessText(other), before, "its owner and access list");
}

void MovesUsersFolderAside(Findings& findings) {
    const Planting planting(findings);
    NeedLocalSystem(findings);
    PlantAsUser(findings, DataFolder() + "\\data", kFile);
    findings.Saw("planted: " + AccessText(DataFolder()));
    InstallerSteps steps;
    planting.Installs();
    for (const std::string& each : steps.Seen()) {
        findings.Saw("Windows Installer ran a step in " + each);
    }
    wchar_t windows[MAX_PATH] = {};
    ::GetSystemWindowsDirectoryW(windows, MAX_PATH);
    const std::string wanted = platform::to_utf8(windows) + "\\Installer as S-1-5-18";
    findings.Expect(steps.Seen().size() == 1 && ::_stricmp(steps.Seen().begin()->c_str(), wanted.c_str()) == 0,
                    "its steps run as LocalSystem from its own folder (" + wanted + ")");
    findings.Expect(!IsThere(DataFolder() + "\\data" + kFile), "the user's file is no longer below " + DataFolder());
    findings.ExpectText(ReadText(Aside(std::string("1-Zorvalis\\data") + kFile)), kText,
                        "it was moved below " + Aside("") + ", its text");
    ExpectAccessLists(findings);
    planting.Purge();
}

// While the mark is kept, the maker's folder is the kit's: the step begins where there is none.
void TakePlanted() {
    if (Kept(kPlanted).empty()) {
        return;
    }
    if (!IsRegistered()) {
        RemoveFolder(MakersFolder());
    }
    RemoveWorkFolder();
    Forget(kPlanted);
}

}  // namespace zorvalis::acceptance
