#include "package.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <deque>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "base/json.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "jobs/task_scheduler_setting.h"
#include "kit.h"
#include "platform/clock.h"
#include "platform/task_scheduler.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "process.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

namespace fs = std::filesystem;

constexpr int kInstallerSeconds = 150;
constexpr wchar_t kPrograms[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr wchar_t kEnvironment[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr const char* kWrittenByService[] = {"ISSERVICERUNNING", "NEEDRELOAD_SETTING_FILE", "SERVICEVERSION",
                                             "SKIP_ONPOWEREVENT", "WMIEVENTID"};
constexpr const char* kHardware[] = {"\\ZorvWinIo64.dll", "\\hardware.json"};

std::string LogPath() {
    wchar_t folder[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH + 1, folder);
    return platform::to_utf8(folder) + "zorv-acceptance-msiexec.log";
}

// Windows Installer writes UTF-16, Wine's the same.
std::string LogText() {
    const std::string bytes = ReadText(LogPath());
    std::wstring wide(bytes.size() / sizeof(wchar_t), L'\0');
    std::copy_n(bytes.data(), wide.size() * sizeof(wchar_t), reinterpret_cast<char*>(wide.data()));
    return platform::to_utf8(wide);
}

// The lines that name a failure: "Return value 3", "Error 1722.", and the last ones of zorvsetup's own log.
void ShowErrors(Findings& findings) {
    const std::string text = LogText();
    int shown = 0;
    for (std::size_t start = 0; start < text.size() && shown < 8;) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        if (line.find("Return value 3") != std::string::npos || line.find("rror ") != std::string::npos) {
            findings.Saw("log: " + line.substr(0, 300));
            ++shown;
        }
        start = end + 1;
    }
    std::istringstream lines(SetupLog());
    std::deque<std::string> last;
    for (std::string line; std::getline(lines, line); last.push_back(line)) {
        if (last.size() == 12) {
            last.pop_front();
        }
    }
    for (const std::string& line : last) {
        findings.Saw("zorvsetup: " + line.substr(0, line.find('\r')));
    }
}

// Puts the log of a run that went wrong beside the report, where it stays.
void KeepLog(Findings& findings) {
    SYSTEMTIME now = {};
    char name[32] = {};
    ::GetLocalTime(&now);
    std::snprintf(name, sizeof name, "msiexec-%02u%02u%02u.log", now.wHour, now.wMinute, now.wSecond);
    const std::string folder = KitFolder() + "\\report", log = folder + "\\" + name;
    ::CreateDirectoryW(platform::to_wide(folder).c_str(), nullptr);
    const bool kept = ::MoveFileExW(platform::to_wide(LogPath()).c_str(), platform::to_wide(log).c_str(),
                                    MOVEFILE_COPY_ALLOWED | MOVEFILE_REPLACE_EXISTING) != FALSE;
    findings.Saw("its whole log: " + (kept ? log : LogPath()));
}

void ReadPrograms(REGSAM view, std::vector<Program>& programs) {
    HKEY opened = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kPrograms, 0, KEY_READ | view, &opened) != ERROR_SUCCESS) {
        return;
    }
    const platform::OwnedKey key(opened);
    const auto text = [&](const wchar_t* name, const wchar_t* value) {
        wchar_t data[512] = {};
        DWORD size = sizeof data - sizeof(wchar_t);
        ::RegGetValueW(key.get(), name, value, RRF_RT_REG_SZ, nullptr, data, &size);
        return platform::to_utf8(data);
    };
    for (DWORD index = 0;; ++index) {
        wchar_t name[256] = {};
        DWORD length = 256;
        if (::RegEnumKeyExW(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return;
        }
        if (const std::string display = text(name, L"DisplayName"); display.starts_with("Zorvalis")) {
            programs.push_back(
                {display, text(name, L"DisplayVersion"), text(name, L"Publisher"), platform::to_utf8(name)});
        }
    }
}

}  // namespace

std::string SetupLog() {
    wchar_t windows[MAX_PATH] = {};
    ::GetSystemWindowsDirectoryW(windows, MAX_PATH);
    return ReadText(platform::to_utf8(windows) + "\\Logs\\Zorvalis-setup.log");
}

std::uint32_t Installer(Findings& findings, const std::string& verb, const std::string& package,
                        const std::string& words) {
    // Without a restore point of Windows, which would stay.
    const std::string command = SystemProgram("msiexec.exe") + " " + verb + " " + Quoted(package) +
                                " /qn /norestart /l*v " + Quoted(LogPath()) + " MSIFASTINSTALL=1" +
                                (words.empty() ? "" : " " + words);
    Ended ended = RunProgram(command, kInstallerSeconds);
    for (int tries = 0; ended.code == ERROR_INSTALL_ALREADY_RUNNING && tries < 6; ++tries) {
        findings.Saw("another installation is running; msiexec is tried again in 10 s");
        ::Sleep(10000);
        ended = RunProgram(command, kInstallerSeconds);
    }
    if (!ended.started || !ended.inTime) {
        ShowErrors(findings);
        KeepLog(findings);
        findings.Fail("msiexec " + verb + " ends within its time" +
                      (ended.started ? "" : ": " + ErrorText(ended.code)));
    }
    findings.Saw("msiexec " + verb + " " + package.substr(package.find_last_of('\\') + 1) +
                 (words.empty() ? "" : " " + words) + " ended with " + std::to_string(ended.code));
    return ended.code;
}

bool ExpectInstaller(Findings& findings, std::uint32_t wanted, const std::string& verb, const std::string& package,
                     const std::string& words) {
    const bool held = findings.ExpectNumber(Installer(findings, verb, package, words), wanted, "its exit code");
    if (!held) {
        ShowErrors(findings);
        KeepLog(findings);
    } else {
        ::DeleteFileW(platform::to_wide(LogPath()).c_str());
    }
    return held;
}

std::uint32_t InstallFailure() {
    return IsWine() ? ERROR_FUNCTION_FAILED : ERROR_INSTALL_FAILURE;
}

std::string InstalledCode() {
    const auto programs = InstalledPrograms();
    return programs.empty() ? "" : programs.front().key;
}

void NeedPackages(Findings& findings) {
    if (NewPackage().empty() || OldPackage().empty()) {
        findings.Impossible("the two packages (.msi) do not lie beside zorv-acceptance.exe");
    }
}

void NeedNoProduct(Findings& findings) {
    NeedPackages(findings);
    for (const std::string& trace : TracesOfProduct()) {
        findings.Impossible("the machine has of the product already: " + trace);
    }
}

void NeedOwnInstallation(Findings& findings) {
    NeedPackages(findings);
    if (IsRegistered() && Kept(kOwnInstallation).empty()) {
        findings.Impossible("this Zorvalis was not installed by the kit, which leaves it as it is");
    }
}

std::vector<Program> InstalledPrograms() {
    std::vector<Program> programs;
    ReadPrograms(KEY_WOW64_64KEY, programs);
    ReadPrograms(KEY_WOW64_32KEY, programs);
    return programs;
}

std::vector<std::string> TracesOfProduct() {
    std::vector<std::string> traces;
    const auto note = [&](bool there, const std::string& what) {
        if (there) {
            traces.push_back(what);
        }
    };
    std::error_code ignored;
    note(fs::exists(platform::to_wide(ProgramFolder()), ignored), ProgramFolder());
    note(IsRegistered(), "the service");
    HKEY key = nullptr;
    const bool source = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kEventSourceKey, 0, KEY_READ, &key) == ERROR_SUCCESS;
    const platform::OwnedKey owned(source ? key : nullptr);
    note(source, "the event source");
    note(TimesOnPath() != 0, "the folder on the PATH");
    for (const Program& program : InstalledPrograms()) {
        traces.push_back("the program's entry " + program.name + " " + program.version);
    }
    for (const wchar_t* name : {kCollectionTask, kActivationTask}) {
        platform::RegisteredTask task;
        note(platform::find_task(WideToUtf8(name), platform::now_seconds(), task).status >= 0,
             "the scheduled task " + WideToUtf8(name));
    }
    return traces;
}

void ExpectTakenBack(Findings& findings) {
    Until(10, [] { return TracesOfProduct().empty(); });  // others may look at the service at this moment
    for (const std::string& trace : TracesOfProduct()) {
        findings.Expect(false, "the failed installation has taken back " + trace);
    }
}

bool HasOthersRecords() {
    std::vector<std::wstring> keys;
    std::vector<platform::RegistryValue> values;
    std::error_code ignored;
    return Kept(kOwnInstallation).empty() && (fs::exists(platform::to_wide(DataFolder()), ignored) ||
                                              platform::list_registry_key(kLocalMachine, kProductKey, keys, values));
}

std::string MakersFolder() {
    return DataFolder().substr(0, DataFolder().find("\\Zorv\\") + 5);
}

std::map<std::string, std::string> Records() {
    std::map<std::string, std::string> records;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(platform::to_wide(DataFolder()), error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->is_regular_file()) {
            const std::string path = platform::to_utf8(entry->path().wstring());
            records[path] = ReadText(path);
        }
    }
    return records;
}

std::map<std::string, std::string> Settings() {
    std::map<std::string, std::string> settings;
    std::vector<std::wstring> keys;
    std::vector<platform::RegistryValue> values;
    platform::list_registry_key(kLocalMachine, kProductKey, keys, values);
    for (const platform::RegistryValue& value : values) {
        const std::string name = WideToUtf8(value.name);
        if (std::find(std::begin(kWrittenByService), std::end(kWrittenByService), name) ==
            std::end(kWrittenByService)) {
            settings[name] = WideToUtf8(value.type + L" " + value.data);
        }
    }
    return settings;
}

void ExpectSame(Findings& findings, const std::map<std::string, std::string>& before,
                const std::map<std::string, std::string>& after, const std::string& what) {
    std::string other;
    for (const auto& [name, content] : before) {
        const auto now = after.find(name);
        other += now == after.end() ? " gone: " + name + ";" : now->second != content ? " changed: " + name + ";" : "";
    }
    for (const auto& [name, content] : after) {
        other += before.contains(name) ? "" : " new: " + name + ";";
    }
    findings.Expect(other.empty(), what + " (" + std::to_string(before.size()) + ")" + other);
}

std::string Behavior(Findings& findings) {
    const Ended ended = RunProgram(
        Quoted(ProgramFolder() + "\\zorvctl.exe") + " query --csv \"SELECT group_concat(freq, ' ') FROM UserBehavior\"",
        60);
    if (ended.output.find("no such table") != std::string::npos) {
        return "";
    }
    const std::size_t line = ended.output.find('\n');  // the first one names the column
    if (!ended.inTime || ended.code != 0 || line == std::string::npos) {
        findings.Fail("zorvctl reads the rows: " + ended.output.substr(0, 300));
    }
    const std::string numbers = ended.output.substr(line + 1, ended.output.find_first_of("\r\n", line + 1) - line - 1);
    return numbers.empty() ? "" : " " + numbers;
}

int TimesOnPath() {
    const std::string folder = ProgramFolder();
    std::string path = MachineText(kEnvironment, L"Path") + ";";
    int times = 0;
    for (std::size_t start = 0, end; (end = path.find(';', start)) != std::string::npos; start = end + 1) {
        std::string part = path.substr(start, end - start);
        if (part.ends_with('\\')) {
            part.pop_back();
        }
        times += ::_stricmp(part.c_str(), folder.c_str()) == 0 ? 1 : 0;
    }
    return times;
}

std::string MachineText(const std::wstring& key, const std::wstring& value) {
    std::wstring text(32768, L'\0');
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    const LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value.c_str(), RRF_RT_REG_SZ, nullptr,
                                          text.data(), &size);  // expands what is to be expanded
    return status == ERROR_SUCCESS ? platform::to_utf8(text.c_str()) : "";
}

// The library keeps the device's identity in hardware.json, where a notebook has a memory of its own for it.
bool PutHardwareLibrary() {
    Json answers = Json::parse(ReadText(KitFolder() + kHardware[1]), nullptr, false);
    if (!answers.is_object()) {
        return false;
    }
    answers["GPNV_RandomUUID"] = "2f6e7a1c-90b4-4d0e-8f35-6b7c1d2e3f40";
    // Old enough to collect and young enough to do so still, whenever the kit is tried.
    const std::time_t lastMonth = std::time(nullptr) - 30 * 24 * 60 * 60;
    char made[32] = {};
    std::strftime(made, sizeof made, "%Y-%m-%d %H:%M:%S", std::gmtime(&lastMonth));
    answers["GPNV_ManufacturedTime"] = made;
    return WriteText(ProgramFolder() + kHardware[1], answers.dump(4)) &&
           ::CopyFileW(platform::to_wide(KitFolder() + kHardware[0]).c_str(),
                       platform::to_wide(ProgramFolder() + kHardware[0]).c_str(), FALSE) != FALSE;
}

void TakeHardwareLibrary() {
    for (const char* name : kHardware) {
        const std::wstring path = platform::to_wide(ProgramFolder() + name);
        // The service or a pass may have it loaded for a moment.
        Until(10, [&] { return ::DeleteFileW(path.c_str()) != FALSE || ::GetLastError() != ERROR_ACCESS_DENIED; });
    }
}

}  // namespace zorvalis::acceptance
