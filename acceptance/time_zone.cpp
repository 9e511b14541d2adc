#include "time_zone.h"

#include <windows.h>

#include <cstring>
#include <cwchar>
#include <stdexcept>
#include <string>

#include "kit.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kJournal[] = "time zone";

// How a zone's rules lie in its value TZI.
struct Rules {
    LONG bias;
    LONG standardBias;
    LONG daylightBias;
    SYSTEMTIME standard;
    SYSTEMTIME daylight;
};

DWORD Set(const DYNAMIC_TIME_ZONE_INFORMATION& zone) {
    // Looked up, since Wine has none.
    const auto set = reinterpret_cast<decltype(&::SetDynamicTimeZoneInformation)>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetDynamicTimeZoneInformation")));
    if (set == nullptr) {
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
    EnableRight(L"SeTimeZonePrivilege");  // administrators have it, but it is off at first
    if (set(&zone) == FALSE) {
        return ::GetLastError();
    }
    DYNAMIC_TIME_ZONE_INFORMATION now = {};
    ::GetDynamicTimeZoneInformation(&now);
    return now.Bias == zone.Bias && now.DaylightDate.wMonth == zone.DaylightDate.wMonth ? ERROR_SUCCESS
                                                                                        : ERROR_NOT_SUPPORTED;
}

// Windows tells the name in its language, but stores where it finds it: "@tzres.dll,-322". That is what is put back.
void KeepNameAsStored(const wchar_t* value, wchar_t (&name)[32]) {
    wchar_t stored[32] = {};
    DWORD size = sizeof stored - sizeof(wchar_t);
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation", value,
                       RRF_RT_REG_SZ, nullptr, stored, &size) == ERROR_SUCCESS) {
        std::memcpy(name, stored, sizeof stored);
    }
}

// Nothing kept is a success.
DWORD PutBack() {
    const std::string bytes = Kept(kJournal);
    DYNAMIC_TIME_ZONE_INFORMATION zone = {};
    if (bytes.size() != sizeof zone) {
        return ERROR_SUCCESS;
    }
    std::memcpy(&zone, bytes.data(), sizeof zone);
    DYNAMIC_TIME_ZONE_INFORMATION now = {};
    ::GetDynamicTimeZoneInformation(&now);
    const bool unchanged = std::wcscmp(now.TimeZoneKeyName, zone.TimeZoneKeyName) == 0 && now.Bias == zone.Bias &&
                           now.DynamicDaylightTimeDisabled == zone.DynamicDaylightTimeDisabled;
    const DWORD error = unchanged ? ERROR_SUCCESS : Set(zone);
    if (error == ERROR_SUCCESS) {
        Forget(kJournal);
    }
    return error;
}

}  // namespace

ChangedZone::~ChangedZone() {
    PutBack();  // what cannot be put back stays kept, for --restore
}

unsigned long ChangedZone::Set(const wchar_t* name) {
    DYNAMIC_TIME_ZONE_INFORMATION zone = {};
    if (Kept(kJournal).empty()) {
        if (::GetDynamicTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID) {
            return ::GetLastError();
        }
        KeepNameAsStored(L"StandardName", zone.StandardName);
        KeepNameAsStored(L"DaylightName", zone.DaylightName);
        Keep(kJournal, std::string(reinterpret_cast<const char*>(&zone), sizeof zone));
    }
    const std::wstring key = std::wstring(L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Time Zones\\") + name;
    Rules rules = {};
    DWORD size = sizeof rules;
    const LSTATUS status =
        ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"TZI", RRF_RT_REG_BINARY, nullptr, &rules, &size);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    zone = {};
    zone.Bias = rules.bias;
    zone.StandardBias = rules.standardBias;
    zone.DaylightBias = rules.daylightBias;
    zone.StandardDate = rules.standard;
    zone.DaylightDate = rules.daylight;
    std::wcsncpy(zone.TimeZoneKeyName, name, std::size(zone.TimeZoneKeyName) - 1);
    std::wcsncpy(zone.StandardName, name, std::size(zone.StandardName) - 1);
    std::wcsncpy(zone.DaylightName, name, std::size(zone.DaylightName) - 1);
    return acceptance::Set(zone);
}

void RestoreZone() {
    if (const DWORD error = PutBack(); error != ERROR_SUCCESS) {
        throw std::runtime_error("the time zone cannot be put back: " + ErrorText(error));
    }
}

}  // namespace zorvalis::acceptance
