#include "package_state.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <filesystem>

#include "kit.h"
#include "package.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "process.h"
#include "product_service.h"
#include "service/service_install.h"

namespace zorvalis::acceptance {
namespace {

namespace fs = std::filesystem;

using OwnedMemory = platform::Owned<::LocalFree, HLOCAL>;

const std::vector<std::string> kFiles = {"LICENSE",          "THIRD-PARTY-NOTICES.md", "ZorvalisWinService.exe",
                                         "administrator.md", "default.json",           "zorvctl.exe"};

// The bytes of one of the service's further settings; empty, with the error in GetLastError, when it cannot be read.
std::vector<BYTE> Further(DWORD level) {
    const OwnedService service = OpenProduct(SERVICE_QUERY_CONFIG);
    std::vector<BYTE> bytes(8192);
    DWORD size = 0;
    if (::QueryServiceConfig2W(service.get(), level, bytes.data(), static_cast<DWORD>(bytes.size()), &size) == FALSE) {
        bytes.clear();
    }
    return bytes;
}

// Whether files keep the access lists that they are given, which Wine's do not.
bool KeepsAccessLists() {
    constexpr wchar_t kList[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, FALSE};
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorW(kList, SDDL_REVISION_1, &attributes.lpSecurityDescriptor,
                                                               nullptr) == FALSE) {
        return false;
    }
    const OwnedMemory owned(attributes.lpSecurityDescriptor);
    wchar_t temporary[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH + 1, temporary);
    const std::wstring folder = std::wstring(temporary) + L"zorv-acceptance-list";
    ::CreateDirectoryW(folder.c_str(), &attributes);
    const std::string kept = AccessText(platform::to_utf8(folder));
    ::RemoveDirectoryW(folder.c_str());
    return kept.find("(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)") != std::string::npos;
}

// Who gets what by an access list in Windows' words: the parts of each entry, "A", "OICI", "FA", "", "", "SY".
std::vector<std::vector<std::string>> EntriesOf(const std::string& text) {
    std::vector<std::vector<std::string>> entries;
    for (std::size_t start = text.find('('); start != std::string::npos; start = text.find('(', start + 1)) {
        const std::string inner = text.substr(start + 1, text.find(')', start) - start - 1);
        std::vector<std::string> parts(1);
        for (const char character : inner) {
            if (character == ';') {
                parts.emplace_back();
            } else {
                parts.back() += character;
            }
        }
        entries.push_back(parts);
    }
    return entries;
}

bool IsTrusted(const std::string& who) {
    return who == "SY" || who == "BA";
}

// Whether nobody but LocalSystem and administrators gets more than to read, or gets anything where `alone`.
bool IsClosed(const std::string& text, bool alone) {
    const auto entries = EntriesOf(text);
    return !entries.empty() && std::all_of(entries.begin(), entries.end(), [&](const auto& parts) {
        constexpr const char* kReading[] = {"0x1200a9", "FR", "0x120089", "GXGR"};
        return parts.size() >= 6 && parts[0] == "A" &&
               (IsTrusted(parts[5]) || parts[5] == "CO" ||
                (!alone && std::find(std::begin(kReading), std::end(kReading), parts[2]) != std::end(kReading)));
    });
}

}  // namespace

std::string AccessText(const std::string& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    wchar_t* text = nullptr;
    constexpr SECURITY_INFORMATION kParts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    if (::GetNamedSecurityInfoW(platform::to_wide(path).c_str(), SE_FILE_OBJECT, kParts, nullptr, nullptr, nullptr,
                                nullptr, &descriptor) != ERROR_SUCCESS) {
        return "";
    }
    const OwnedMemory owned(descriptor);
    if (::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, kParts, &text, nullptr) ==
        FALSE) {
        return "";
    }
    const OwnedMemory ownedText(text);
    return platform::to_utf8(text);
}

void ExpectFiles(Findings& findings, const std::vector<std::string>& more) {
    std::vector<std::string> wanted = kFiles, found;
    wanted.insert(wanted.end(), more.begin(), more.end());
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(platform::to_wide(ProgramFolder()), error)) {
        found.push_back(platform::to_utf8(entry.path().filename().wstring()));
    }
    for (const std::string& name : wanted) {
        const bool there = std::find(found.begin(), found.end(), name) != found.end();
        findings.Expect(there, name + " is in " + ProgramFolder());
        std::erase(found, name);
    }
    for (const std::string& name : found) {
        findings.Expect(false, "only files of the package are in the folder, but there is " + name);
    }
}

void ExpectOneProgram(Findings& findings) {
    const auto programs = InstalledPrograms();
    for (const Program& program : programs) {
        findings.Saw(program.name + ", " + program.version + ", " + program.publisher + ", " + program.key);
    }
    findings.ExpectNumber(static_cast<long long>(programs.size()), 1, "entries among the installed programs");
}

void ExpectServiceEntry(Findings& findings) {
    const OwnedService service = OpenProduct(SERVICE_QUERY_CONFIG);
    std::vector<BYTE> bytes(8192);
    DWORD size = 0;
    if (::QueryServiceConfigW(service.get(), reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes.data()),
                              static_cast<DWORD>(bytes.size()), &size) == FALSE) {
        findings.Fail("the service's entry can be read: " + ErrorText(::GetLastError()));
    }
    const auto& entry = *reinterpret_cast<const QUERY_SERVICE_CONFIGW*>(bytes.data());
    findings.ExpectNumber(entry.dwServiceType, SERVICE_WIN32_OWN_PROCESS, "the service's type");
    findings.ExpectNumber(entry.dwStartType, SERVICE_AUTO_START, "its start");
    findings.ExpectNumber(entry.dwErrorControl, SERVICE_ERROR_NORMAL, "its error control");
    findings.ExpectText(platform::to_utf8(entry.lpBinaryPathName), Quoted(ProgramFolder() + "\\ZorvalisWinService.exe"),
                        "its path");
    findings.ExpectText(platform::to_utf8(entry.lpServiceStartName), "LocalSystem", "its account");
    findings.ExpectText(platform::to_utf8(entry.lpDisplayName), platform::to_utf8(kServiceName), "its name for people");
    findings.Expect(entry.lpDependencies == nullptr || *entry.lpDependencies == L'\0',
                    "it depends on no other service");
    const auto description = Further(SERVICE_CONFIG_DESCRIPTION);
    const wchar_t* const words = description.empty()
                                     ? nullptr
                                     : reinterpret_cast<const SERVICE_DESCRIPTIONW*>(description.data())->lpDescription;
    findings.Expect(words != nullptr && *words != L'\0',
                    "it has a description: " + platform::to_utf8(words == nullptr ? L"" : words));
    const auto limit = Further(SERVICE_CONFIG_PRESHUTDOWN_INFO);
    findings.ExpectNumber(
        limit.empty() ? -1 : reinterpret_cast<const SERVICE_PRESHUTDOWN_INFO*>(limit.data())->dwPreshutdownTimeout,
        180000, "its milliseconds before a shutdown");
}

void ExpectRecovery(Findings& findings) {
    const auto bytes = Further(SERVICE_CONFIG_FAILURE_ACTIONS);
    if (bytes.empty()) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_INVALID_LEVEL || error == ERROR_CALL_NOT_IMPLEMENTED) {
            findings.Impossible("this service manager tells of no recovery: " + ErrorText(error));
        }
        findings.Fail("the service's recovery can be read: " + ErrorText(error));
    }
    const auto& recovery = *reinterpret_cast<const SERVICE_FAILURE_ACTIONSW*>(bytes.data());
    std::string actions;
    for (DWORD index = 0; index < recovery.cActions; ++index) {
        actions += (index == 0 ? "" : ", ") + std::to_string(recovery.lpsaActions[index].Type) + " after " +
                   std::to_string(recovery.lpsaActions[index].Delay / 60000) + " min";
    }
    findings.ExpectText(actions, "1 after 1 min, 1 after 5 min, 1 after 15 min", "its actions (1 is a restart)");
    findings.Saw("counted anew after " + std::to_string(recovery.dwResetPeriod) + " s");
}

void ExpectAccessLists(Findings& findings) {
    if (!KeepsAccessLists()) {
        findings.Impossible("files do not keep the access lists that they are given");
    }
    for (const auto& [path, alone] : {std::pair{MakersFolder(), false}, {DataFolder(), true}}) {
        const std::string text = AccessText(path);
        findings.Expect(IsClosed(text, alone),
                        path + (alone ? " is open to nobody else" : " is written by nobody else") + ": " + text);
        findings.Expect(text.starts_with("O:SY") || text.starts_with("O:BA"), path + " is owned by one of them");
        findings.Expect(text.find("D:P") != std::string::npos, path + " takes no rights from above");
    }
}

void ExpectEventSource(Findings& findings) {
    const std::string file = MachineText(kEventSourceKey, L"EventMessageFile");
    findings.Expect(fs::exists(platform::to_wide(file)), "the message file is there: " + file);
    DWORD types = 0;
    DWORD size = sizeof types;
    ::RegGetValueW(HKEY_LOCAL_MACHINE, kEventSourceKey, L"TypesSupported", RRF_RT_REG_DWORD, nullptr, &types, &size);
    findings.ExpectNumber(types, EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE,
                          "the types of entries");
}

void ExpectPath(Findings& findings) {
    findings.ExpectNumber(TimesOnPath(), 1, "times that the machine's PATH has the folder");
    const Ended version = RunProgram(Quoted(ProgramFolder() + "\\zorvctl.exe") + " --version", 30);
    findings.Expect(version.inTime && version.code == 0, "zorvctl runs: " + version.output.substr(0, 100));
}

}  // namespace zorvalis::acceptance
