// zorvctl on this machine, and what Windows says about the executables.
#include <windows.h>

#include <softpub.h>
#include <wintrust.h>

#include <map>
#include <string>
#include <vector>

#include "base/json.h"
#include "common/version.h"
#include "kit.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "process.h"
#include "running_program.h"
#include "steps_machine.h"
#include "user_token.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

constexpr const char* kPrograms[] = {"ZorvalisWinService.exe", "zorvctl.exe"};

std::string Zorvctl() {
    return Quoted(ProgramFolder() + "\\zorvctl.exe");
}

// The state of each link that `zorvctl status --json` told, and its exit code.
struct Status {
    std::map<std::string, std::string> links;
    DWORD code = 0;
};

Status StatusOf(Findings& findings, const std::string& output, DWORD code) {
    Status status;
    status.code = code;
    try {
        const Json json = Json::parse(output);
        for (const Json& link : json.at("links")) {
            status.links[link.at("link").get<std::string>()] = link.at("state").get<std::string>();
        }
        findings.Saw(json.at("verdict").get<std::string>());
        findings.ExpectNumber(json.at("exitCode").get<int>(), code, "the exit code stands in the JSON");
    } catch (const std::exception& exception) {
        findings.Fail("zorvctl status --json prints no status: " + std::string(exception.what()) + ": " + output);
    }
    return status;
}

// Their names, each behind a blank.
std::string LinksThatAre(const std::string& wanted, const Status& status) {
    std::string names;
    for (const auto& [link, state] : status.links) {
        names += state == wanted ? " " + link : "";
    }
    return names;
}

void StatusByBoth(Findings& findings) {
    const Ended text = RunProgram(Zorvctl() + " status", 60);
    findings.Expect(text.started && text.inTime && text.code <= 2 && text.output.find("service") != std::string::npos,
                    "an administrator gets a status as text");
    const Ended json = RunProgram(Zorvctl() + " status --json", 60);
    findings.Saw("as administrator:");
    const Status own = StatusOf(findings, json.output, json.code);
    const std::string unseen = LinksThatAre("unknown", own);
    findings.ExpectText(unseen, "", "what an administrator may not see");
    const platform::OwnedHandle token = UserToken(findings);
    RunningProgram user(Zorvctl() + " status --json", token.get());
    std::string output;
    DWORD code = 0;
    if (!user.started() || !user.Wait(60, output, code)) {
        findings.Fail("zorvctl does not run as an ordinary user: " + ErrorText(user.error()));
    }
    findings.Saw("as ordinary user:");
    const Status ordinary = StatusOf(findings, output, code);
    for (const auto& [link, state] : ordinary.links) {
        const auto same = own.links.find(link);
        if (state == "broken" && (same == own.links.end() || same->second != "broken")) {
            findings.Expect(false, "an ordinary user hears nothing false about \"" + link + "\"");
        }
    }
    const std::string unknown = LinksThatAre("unknown", ordinary);
    if (IsWine() && unknown.empty()) {
        findings.Impossible("an ordinary user has all rights here");
    }
    findings.Expect(!unknown.empty(), "an ordinary user hears that it lacks the rights to see:" + unknown);
}

void Completion(Findings& findings) {
    const WorkFolder folder;
    wchar_t system[MAX_PATH] = {};
    ::GetSystemDirectoryW(system, MAX_PATH);
    const std::string shell = platform::to_utf8(system) + "\\WindowsPowerShell\\v1.0\\powershell.exe";
    // TabExpansion2 is what PowerShell itself asks at the key.
    const std::string script = WorkFolder::Path("complete.ps1");
    const std::string program = ProgramFolder() + "\\zorvctl.exe";
    WriteText(script,
              "$ErrorActionPreference = 'Stop'\r\n& '" + program +
                  "' completion powershell | Out-String | Invoke-Expression\r\n"
                  "foreach ($line in 'zorvctl sta', 'zorvctl set main', 'zorvctl status --j') {\r\n"
                  "  '[' + ((TabExpansion2 $line $line.Length).CompletionMatches.CompletionText -join ' ') + ']'\r\n"
                  "}\r\n");
    const Ended run =
        RunProgram(Quoted(shell) + " -NoProfile -NonInteractive -ExecutionPolicy Bypass -File " + Quoted(script), 90);
    if (!run.started || (run.code == 0 && run.output.find('[') == std::string::npos)) {
        findings.Impossible("there is no PowerShell that runs a script: " + std::to_string(run.code) + run.output);
    }
    findings.Saw(run.output);
    findings.ExpectNumber(run.code, 0, "PowerShell runs the completion");
    for (const char* word : {"status", "main-switch", "--json"}) {
        findings.Expect(run.output.find(word) != std::string::npos, std::string("it completes to ") + word);
    }
}

// "2.0.6.0", or an empty text.
std::string FileVersion(const std::string& path) {
    const std::wstring name = platform::to_wide(path);
    std::vector<BYTE> block(::GetFileVersionInfoSizeW(name.c_str(), nullptr));
    VS_FIXEDFILEINFO* info = nullptr;
    UINT size = 0;
    if (block.empty() ||
        ::GetFileVersionInfoW(name.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) == FALSE ||
        ::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &size) == FALSE) {
        return "";
    }
    return std::to_string(HIWORD(info->dwFileVersionMS)) + "." + std::to_string(LOWORD(info->dwFileVersionMS)) + "." +
           std::to_string(HIWORD(info->dwFileVersionLS)) + "." + std::to_string(LOWORD(info->dwFileVersionLS));
}

// What Windows says about the signature: 0 for a trusted one.
LONG Trust(const std::string& path) {
    const std::wstring name = platform::to_wide(path);
    WINTRUST_FILE_INFO file = {};
    file.cbStruct = sizeof file;
    file.pcwszFilePath = name.c_str();
    WINTRUST_DATA data = {};
    data.cbStruct = sizeof data;
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_NONE;
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &file;
    data.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL;  // nothing goes over the network
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    return ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &data);
}

// What Windows' loader reads in the file's headers: whether addresses are random in 64 bits and data is not executed,
// and no section is both written and executed.
bool IsHardened(const std::string& path) {
    constexpr WORD kWanted = IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA | IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE |
                             IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    const std::string bytes = ReadText(path);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes.data());
    if (bytes.size() < 4096 || dos->e_lfanew < 0 || dos->e_lfanew > 2048) {
        return false;
    }
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(bytes.data() + dos->e_lfanew);
    const IMAGE_SECTION_HEADER* const sections = IMAGE_FIRST_SECTION(headers);
    bool good = (headers->OptionalHeader.DllCharacteristics & kWanted) == kWanted;
    for (WORD i = 0; i < headers->FileHeader.NumberOfSections && i < 24; ++i) {
        constexpr DWORD kBoth = IMAGE_SCN_MEM_WRITE | IMAGE_SCN_MEM_EXECUTE;
        good = good && (sections[i].Characteristics & kBoth) != kBoth;
    }
    return good;
}

void Executables(Findings& findings) {
    for (const char* name : kPrograms) {
        const std::string path = ProgramFolder() + "\\" + name;
        findings.ExpectText(FileVersion(path), kServiceVersion, std::string(name) + ": its version");
        findings.Expect(IsHardened(path), std::string(name) + ": random addresses, no data is executed");
        char trust[16] = {};
        std::snprintf(trust, sizeof trust, "%08lX", static_cast<unsigned long>(Trust(path)));
        findings.Saw(std::string(name) + ": its signature: " + trust + " (0 is trusted, 800B0100 is none)");
    }
    wchar_t programs[MAX_PATH] = {};
    ::GetEnvironmentVariableW(L"ProgramFiles", programs, MAX_PATH);
    const std::string scanner = platform::to_utf8(programs) + "\\Windows Defender\\MpCmdRun.exe";
    const Ended scan = RunProgram(
        Quoted(scanner) + " -Scan -ScanType 3 -File " + Quoted(ProgramFolder()) + " -DisableRemediation", 90);
    findings.Saw(!scan.started ? "Defender is not here: " + ErrorText(scan.code)
                 : !scan.inTime
                     ? "Defender has not ended within 90 s"
                     : "Defender ended with " + std::to_string(scan.code) + " (2 is a finding): " + scan.output);
}

}  // namespace

std::vector<Step> ToolSteps() {
    return {
        {"7.29", "zorvctl status tells an administrator all and an ordinary user nothing false", StatusByBoth, 200},
        {"7.30", "PowerShell completes the commands of zorvctl", Completion, 120, RemoveWorkFolder},
        {"7.31", "The executables have the product's version and protected headers; signature and scan", Executables,
         150},
    };
}

}  // namespace zorvalis::acceptance
