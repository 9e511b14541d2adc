// Where libraries are loaded from.
#include <windows.h>

#include <string>
#include <vector>

#include "base/json.h"
#include "kit.h"
#include "part.h"
#include "platform/library.h"
#include "platform/windows/wide.h"
#include "process.h"
#include "running_program.h"
#include "steps_machine.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

std::string PathOfLibrary(const wchar_t* name) {
    wchar_t path[MAX_PATH] = {};
    const HMODULE library = ::GetModuleHandleW(name);
    return library != nullptr && ::GetModuleFileNameW(library, path, MAX_PATH) != 0 ? platform::to_utf8(path) : "";
}

// Prints the path of each library that can be opened by its bare name, or an empty line.
int OpenLibraries(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        const platform::SharedLibrary library(platform::to_wide(name).c_str());
        Say(library.is_open() ? PathOfLibrary(platform::to_wide(name).c_str()) : "");
    }
    return 0;
}
const Part kOpenLibraries("library-open", OpenLibraries);

// What the product's own tool says about the network, by both of its libraries.
std::string NetworkWords(Findings& findings, const std::string& program) {
    const Ended run = RunProgram(Quoted(program) + " status --json", 60);
    std::string words;
    try {
        const Json status = Json::parse(run.output);
        for (const Json& link : status.at("links")) {
            const auto name = link.at("link").get<std::string>();
            words +=
                name == "network" || name == "server" ? name + ": " + link.at("why").get<std::string>() + "; " : "";
        }
    } catch (const std::exception& exception) {
        findings.Fail(program + " prints no status: " + exception.what() + ": " + run.output);
    }
    return words;
}

// Any small library that needs no other one: the stand-in of the hardware's, else one of Windows' own.
std::string SomeLibrary() {
    wchar_t system[MAX_PATH] = {};
    ::GetSystemDirectoryW(system, MAX_PATH);
    for (const std::string& path : {KitFolder() + "\\ZorvWinIo64.dll", ProgramFolder() + "\\ZorvWinIo64.dll"}) {
        if (::GetFileAttributesW(platform::to_wide(path).c_str()) != INVALID_FILE_ATTRIBUTES) {
            return path;
        }
    }
    return platform::to_utf8(system) + "\\version.dll";
}

bool Copy(const std::string& from, const std::string& to) {
    return ::CopyFileW(platform::to_wide(from).c_str(), platform::to_wide(to).c_str(), FALSE) != FALSE;
}

void Search(Findings& findings) {
    const WorkFolder folder;
    for (const char* name : {"bin", "current", "path"}) {
        ::CreateDirectoryW(platform::to_wide(WorkFolder::Path(name)).c_str(), nullptr);
    }
    const std::string program = WorkFolder::Path("bin\\zorv-acceptance.exe");
    const std::string library = SomeLibrary();
    if (!Copy(KitFolder() + "\\zorv-acceptance.exe", program) ||
        !Copy(library, WorkFolder::Path("bin\\zorv-beside.dll")) ||
        !Copy(library, WorkFolder::Path("current\\zorv-current.dll")) ||
        !Copy(library, WorkFolder::Path("path\\zorv-path.dll"))) {
        findings.Fail("copies cannot be made: " + ErrorText(::GetLastError()));
    }
    std::wstring path(32767, L'\0');
    path.resize(::GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    ::SetEnvironmentVariableW(L"PATH", (platform::to_wide(WorkFolder::Path("path")) + L";" + path).c_str());
    RunningProgram child(PartCommand("library-open", {"zorv-beside.dll", "zorv-current.dll", "zorv-path.dll"}, program),
                         nullptr, WorkFolder::Path("current"));
    findings.Expect(child.Line() == WorkFolder::Path("bin\\zorv-beside.dll"),
                    "a library beside the executable is loaded");
    findings.ExpectText(child.Line(), "", "one in the current folder is not");
    findings.ExpectText(child.Line(), "", "one in a folder of PATH is not");
    std::string output;
    DWORD code = 1;
    findings.Expect(child.Wait(20, output, code) && code == 0, "the program that tried it has ended well");
}

void LateLibraries(Findings& findings) {
    const WorkFolder folder;
    const std::string program = WorkFolder::Path("zorvctl.exe");
    const std::string library = SomeLibrary();
    if (!Copy(ProgramFolder() + "\\zorvctl.exe", program) || !Copy(library, WorkFolder::Path("winhttp.dll")) ||
        !Copy(library, WorkFolder::Path("wininet.dll"))) {
        findings.Fail("copies cannot be made: " + ErrorText(::GetLastError()));
    }
    const HMODULE copy = ::LoadLibraryW(platform::to_wide(WorkFolder::Path("wininet.dll")).c_str());
    if (copy == nullptr) {
        findings.Fail("the false copy cannot be loaded: " + ErrorText(::GetLastError()));
    }
    const bool isReal = ::GetProcAddress(copy, "InternetGetConnectedState") != nullptr;
    ::FreeLibrary(copy);
    if (isReal) {
        findings.Impossible("the true wininet.dll is loaded here in the place of a false one, whatever its path");
    }
    const std::string wanted = NetworkWords(findings, ProgramFolder() + "\\zorvctl.exe");
    findings.Expect(wanted.find("network: ") != std::string::npos && wanted.find("server: ") != std::string::npos,
                    "zorvctl asks both libraries");
    findings.ExpectText(NetworkWords(findings, program), wanted, "false copies of them beside it change nothing");
}

}  // namespace

std::vector<Step> LibrarySteps() {
    return {
        {"7.21", "Libraries come from beside the executable, and not from PATH or the current folder", Search, 60,
         RemoveWorkFolder, false},
        {"7.22", "The network's libraries come from System32, whatever lies beside the executable", LateLibraries, 150,
         RemoveWorkFolder},
    };
}

}  // namespace zorvalis::acceptance
