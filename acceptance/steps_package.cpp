// Group 1: the older package in, then the newer one over it, with everything that Windows Installer is asked for
// between. At its end the newer one is installed, its service was started, and the stand-in hardware library lies
// beside it.
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "common/registry.h"
#include "common/time.h"
#include "common/version.h"
#include "kit.h"
#include "package.h"
#include "package_state.h"
#include "platform/clock.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "process.h"
#include "product_service.h"
#include "steps_package.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kRefused = 1603;

void TakeObstacle() {
    if (ReadText(MakersFolder()) == "zorv-acceptance") {
        ::DeleteFileW(platform::to_wide(MakersFolder()).c_str());
    }
}

void NeedBareMachine(Findings& findings) {
    for (const std::string& trace : TracesOfProduct()) {
        findings.Fail("the machine has nothing of the product before: " + trace + " is there");
    }
}

// Of the kit's product, when somebody has removed it without the kit.
void TakeForgottenLibrary() {
    if (!IsRegistered() && !Kept(kOwnInstallation).empty()) {
        Forget(kOwnInstallation);
        TakeHardwareLibrary();
        const fs::path folder = platform::to_wide(ProgramFolder());
        ::RemoveDirectoryW(folder.c_str());  // refused while something is in it
        ::RemoveDirectoryW(folder.parent_path().c_str());
    }
}

void FailsWithoutTraces(Findings& findings) {
    NeedPackages(findings);
    NeedBareMachine(findings);
    const fs::path folder = platform::to_wide(MakersFolder());
    if (fs::exists(folder)) {
        findings.Impossible(MakersFolder() + " is there, and a file is to take its place");
    }
    struct Obstacle {
        ~Obstacle() { TakeObstacle(); }
    } const obstacle;
    WriteText(MakersFolder(), "zorv-acceptance");
    ExpectInstaller(findings, InstallFailure(), "/i", OldPackage());
    ExpectTakenBack(findings);
    findings.Expect(ReadText(MakersFolder()) == "zorv-acceptance", "the file that was in the way is as it was");
}

void Installs(Findings& findings) {
    NeedPackages(findings);
    NeedBareMachine(findings);
    if (HasOthersRecords()) {
        findings.Impossible("records or settings of an earlier installation lie here, and the kit would delete them");
    }
    Keep(kOwnInstallation, "1");
    if (!ExpectInstaller(findings, 0, "/i", OldPackage()) && !IsRegistered()) {
        Forget(kOwnInstallation);
    }
    ExpectFiles(findings);
    ExpectOneProgram(findings);
}

void RecordsByAPass(Findings& findings) {
    NeedOwnInstallation(findings);
    findings.Expect(PutHardwareLibrary(), "the stand-in hardware library can be put beside the executable");
    // A machine of a month's age, so that it may collect, whose server nobody is.
    std::tm day{};
    platform::local_time(platform::now_seconds() - 30 * 86400, day);
    wchar_t date[16] = {};
    std::wcsftime(date, 16, L"%Y/%m/%d", &day);
    WriteRegString(kLocalMachine, kProductKey, L"FakeManufacturingDate", date);
    WriteRegString(kLocalMachine, kProductKey, L"BGSERVER_URL", L"localhost");
    const Ended pass = RunProgram(Quoted(ProgramFolder() + "\\ZorvalisWinService.exe") + " -j0", 60);
    findings.Expect(pass.inTime && pass.code == 0, "a pass ends in time, with 0");
    const auto records = Records();
    const bool made = findings.Expect(
        std::any_of(records.begin(), records.end(),
                    [](const auto& file) { return file.first.find("\\data\\O_") != std::string::npos; }),
        "the pass has made a file of records below " + DataFolder());
    if (!made) {
        std::istringstream why(RunProgram(Quoted(ProgramFolder() + "\\zorvctl.exe") + " status", 60).output);
        for (std::string line; std::getline(why, line);) {
            findings.Saw("zorvctl status: " + line);
        }
    }
    for (const auto& [path, bytes] : records) {
        findings.Saw(path + ", " + std::to_string(bytes.size()) + " bytes");
    }
    findings.Expect(ReadRegString(kLocalMachine, kProductKey, L"GetThermal") != ERROR_READREG,
                    "the pass has set the timers in the registry");
}

// Expects that an act of Windows Installer has left records and settings as they were.
class Unchanged {
public:
    explicit Unchanged(Findings& findings) : findings_(findings) {}
    ~Unchanged() {
        findings_.Expect(!records_.empty(), std::to_string(records_.size()) + " files were below the data folder");
        ExpectSame(findings_, records_, Records(), "the files below the data folder are as they were, byte by byte");
        ExpectSame(findings_, settings_, Settings(), "the values of the product's key are as they were");
    }
    Unchanged(const Unchanged&) = delete;
    Unchanged& operator=(const Unchanged&) = delete;

private:
    Findings& findings_;
    const std::map<std::string, std::string> records_ = Records();
    const std::map<std::string, std::string> settings_ = Settings();
};

void ExpectVersion(Findings& findings, bool newer) {
    ExpectOneProgram(findings);
    const auto programs = InstalledPrograms();
    findings.Expect(!programs.empty() && (programs[0].version == kServiceVersion) == newer,
                    newer ? "the program's entry has the new version" : "the program's entry has the old version");
}

void Upgrades(Findings& findings) {
    NeedOwnInstallation(findings);
    ExpectVersion(findings, false);
    {
        const Unchanged unchanged(findings);
        ExpectInstaller(findings, 0, "/i", NewPackage());
    }
    ExpectVersion(findings, true);
    ExpectFiles(findings, {"ZorvWinIo64.dll", "hardware.json"});
    ExpectServiceEntry(findings);
    ExpectEventSource(findings);
}

void Repairs(Findings& findings) {
    NeedOwnInstallation(findings);
    for (const char* name : {"zorvctl.exe", "default.json"}) {
        ::DeleteFileW(platform::to_wide(ProgramFolder() + "\\" + name).c_str());
    }
    const OwnedService service = OpenProduct(SERVICE_CHANGE_CONFIG);
    findings.Expect(::ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                           platform::to_wide(ProgramFolder() + "\\ZorvalisWinService.exe").c_str(),
                                           nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) != FALSE,
                    "the quotes can be taken off the service's path, for the repair to put on");
    {
        const Unchanged unchanged(findings);
        ExpectInstaller(findings, 0, "/i", NewPackage(), "REINSTALL=ALL");
    }
    ExpectFiles(findings, {"ZorvWinIo64.dll", "hardware.json"});
    ExpectServiceEntry(findings);
}

void RefusesDowngrade(Findings& findings) {
    NeedOwnInstallation(findings);
    {
        const Unchanged unchanged(findings);
        ExpectInstaller(findings, kRefused, "/i", OldPackage());
    }
    ExpectVersion(findings, true);
    ExpectServiceEntry(findings);
}

void FailsWholeWhereAFileIsHeld(Findings& findings) {
    NeedOwnInstallation(findings);
    const OwnedService service = OpenProduct(SERVICE_QUERY_STATUS);
    const auto before = StatusOf(service.get());
    {
        const Unchanged unchanged(findings);
        const HANDLE held = ::CreateFileW(platform::to_wide(ProgramFolder() + "\\zorvctl.exe").c_str(), GENERIC_READ,
                                          FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        const platform::OwnedHandle owned(held == INVALID_HANDLE_VALUE ? nullptr : held);
        findings.Expect(owned != nullptr, "zorvctl.exe can be held open");
        ExpectInstaller(findings, InstallFailure(), "/i", NewPackage(),
                        "REINSTALL=ALL");  // and not 3010, which asks for a restart
    }
    ExpectFiles(findings, {"ZorvWinIo64.dll", "hardware.json"});
    ExpectServiceEntry(findings);
    findings.Expect(before && WaitForState(service.get(), before->dwCurrentState, 30),
                    "the service's state is that of before");
    ExpectInstaller(findings, 0, "/i", NewPackage(), "REINSTALL=ALL");
}

void RunsAtTheEnd(Findings& findings) {
    NeedOwnInstallation(findings);
    NeedRunnable(findings);
    findings.Expect(WaitForState(OpenProduct(SERVICE_QUERY_STATUS).get(), SERVICE_RUNNING, 30),
                    "the installed service runs without anybody having started it");
}

}  // namespace

std::vector<Step> PackageSteps() {
    return {
        {"1.1", "An installation that cannot be finished fails with 1603 and leaves nothing", FailsWithoutTraces,
         kInstallSeconds, TakeObstacle, false},
        {"1.14", "The executable registers and removes itself, with its words", InstallsItself, 120, RemoveOwnEntry,
         false},
        {"1.15", "The executable's -remove deletes both scheduled tasks", RemovesTasks, 120, RemoveOwnEntry, false},
        {"1.16", "A data folder that an ordinary user holds makes the installation fail in words", RefusesHeldFolder,
         2 * kInstallSeconds, TakePlanted, false},
        {"1.17", "A junction in the data folder's place makes the installation fail in words", RefusesJunction,
         2 * kInstallSeconds, TakePlanted, false},
        {"1.18", "Links in the data folder are moved aside, and what they lead to stays as it is", MovesLinksAside,
         2 * kInstallSeconds, TakePlanted, false},
        {"1.19", "LocalSystem's installation moves an ordinary user's data folder aside", MovesUsersFolderAside,
         2 * kInstallSeconds, TakePlanted, false},
        {"1.2", "The package installs silently: files, one entry among the programs", Installs, kInstallSeconds,
         nullptr, false},
        {"1.3", "The service is registered as it should, its path in quotes", ExpectServiceEntry},
        {"1.4", "A service that dies is to be restarted after 1, 5 and 15 minutes", ExpectRecovery},
        {"1.5", "The data folder belongs to LocalSystem and administrators alone", ExpectAccessLists},
        {"1.6", "The event source names a message file that is there", ExpectEventSource},
        {"1.7", "zorvctl is found by the machine's PATH", ExpectPath},
        {"1.8", "A pass of the installed executable makes records", RecordsByAPass, 130, TakeForgottenLibrary},
        {"1.20", "An upgrade that fails at its last step leaves the older package whole", TakesUpgradeBack,
         kInstallSeconds, PutMarkedFileBack},
        {"1.9", "An upgrade keeps records and settings, and leaves one service and one entry", Upgrades,
         kInstallSeconds},
        {"1.10", "A repair brings back files and the service's entry", Repairs, kInstallSeconds},
        {"1.11", "A downgrade is refused with 1603 and changes nothing", RefusesDowngrade, kInstallSeconds},
        {"1.12", "A file that is held open makes a repair fail with 1603, and nothing else", FailsWholeWhereAFileIsHeld,
         2 * kInstallSeconds},
        {"1.13", "The installed service runs", RunsAtTheEnd},
    };
}

}  // namespace zorvalis::acceptance
