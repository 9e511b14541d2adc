#include "machine.h"

#include <windows.h>

#include <cstring>

#include "kit.h"
#include "platform/text.h"

namespace zorvalis::acceptance {
namespace {

// A text or number under HKEY_LOCAL_MACHINE; "-" when it is not there.
std::string Value(const wchar_t* key, const wchar_t* name) {
    DWORD type = REG_NONE;
    wchar_t text[256] = {};
    DWORD size = sizeof text - sizeof(wchar_t);
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, key, name, RRF_RT_REG_SZ | RRF_RT_REG_DWORD, &type, text, &size) !=
        ERROR_SUCCESS) {
        return "-";
    }
    DWORD number = 0;
    std::memcpy(&number, text, sizeof number);
    return type == REG_DWORD ? std::to_string(number) : platform::to_utf8(text);
}

// What GetVersionEx no longer tells: RtlGetVersion's numbers.
std::string Version() {
    constexpr wchar_t kKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    using GetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
    const auto get = reinterpret_cast<GetVersion>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    if (get == nullptr || get(&version) != 0) {
        return "unknown";
    }
    return std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
           std::to_string(version.dwBuildNumber) + "." + Value(kKey, L"UBR") + ", " + Value(kKey, L"EditionID") + " " +
           Value(kKey, L"DisplayVersion") + (IsWine() ? ", under Wine" : "");
}

std::string Language(LANGID language) {
    wchar_t name[LOCALE_NAME_MAX_LENGTH] = {};
    ::LCIDToLocaleName(MAKELCID(language, SORT_DEFAULT), name, LOCALE_NAME_MAX_LENGTH, 0);
    return platform::to_utf8(name);
}

std::string Power() {
    SYSTEM_POWER_STATUS power = {};
    if (::GetSystemPowerStatus(&power) == FALSE) {
        return ErrorText(::GetLastError());
    }
    constexpr BYTE kNoBattery = 128, kUnknown = 255;
    return std::string(power.ACLineStatus == 1 ? "on mains" : "not on mains") +
           (power.BatteryFlag == kUnknown           ? ", battery unknown"
            : (power.BatteryFlag & kNoBattery) != 0 ? ", no battery"
                                                    : ", a battery");
}

}  // namespace

std::vector<std::pair<std::string, std::string>> MachineFacts() {
    constexpr wchar_t kMachine[] = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
    constexpr wchar_t kControl[] = L"SYSTEM\\CurrentControlSet\\Control\\";
    const auto control = [&](const wchar_t* key, const wchar_t* name) {
        return Value((std::wstring(kControl) + key).c_str(), name);
    };
    SYSTEM_INFO system = {};
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof memory;
    ::GetNativeSystemInfo(&system);
    ::GlobalMemoryStatusEx(&memory);
    return {
        {"Windows", Version()},
        {"machine", Value(kMachine, L"SystemManufacturer") + ", " + Value(kMachine, L"SystemProductName")},
        {"processors", std::to_string(system.dwNumberOfProcessors)},
        {"memory", std::to_string(memory.ullTotalPhys >> 20) + " MiB"},
        {"power", Power()},
        {"languages", "of Windows " + Language(::GetSystemDefaultUILanguage()) + ", of the user " +
                          Language(::GetUserDefaultUILanguage()) + ", code page " + std::to_string(::GetACP())},
        {"session", ::GetSystemMetrics(SM_REMOTESESSION) != 0 ? "remote" : "at the machine"},
        {"user account control",
         Value(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System", L"EnableLUA")},
        {"memory integrity", control(L"DeviceGuard\\Scenarios\\HypervisorEnforcedCodeIntegrity", L"Enabled")},
        {"Smart App Control", control(L"CI\\Policy", L"VerifiedAndReputablePolicyState")},
    };
}

}  // namespace zorvalis::acceptance
