// The direct way: getters that answer by callback, and setters. The JSON way is in service_calls.cpp.
#include "client/system_info.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cwchar>

#include "base/text.h"
#include "client/consent.h"
#include "client/device_modes.h"
#include "collection/zorv_win_io_dll.h"
#include "common/code_page.h"
#include "common/device_identity.h"
#include "common/log.h"
#include "common/registry.h"
#include "common/version.h"
#include "common/wide_to_utf8.h"
#include "jobs/job_manager.h"
#include "platform/library.h"
#include "platform/rpc_callback.h"

namespace zorvalis {
namespace {

constexpr std::uint8_t kFlag = 1;  // what the hardware functions take as their flag

// Longer than the collectors' buffers, to be on the safe side: the exports take no length.
using TextBuffer = std::array<wchar_t, 256>;

struct NameFunction {
    std::int32_t number;
    const char* function;
    const char* words;
};

constexpr std::array<NameFunction, 6> kNames = {{
    {kGetModelName, "WMIGetModelName", "[SystemInfoClass] GetModelName : return : "},
    {kGetSerialNumber, "WMIGetSN", "[SystemInfoClass] GetSerialNumber : return : "},
    {kGetFamilyName, "WMIGetComputerFamilyName", "[SystemInfoClass] GetFamilyName : return : "},
    {kGetChassisTypes, "WMIGetSystemChassisTypes", "[SystemInfoClass] Func_GetChassisTypes : "},
    {kGetProductName, "WMIGetProductName", "[SystemInfoClass] wmiGetProductName : return : "},
    {kGetWiFiCardName, "WMIGetWiFiCardName", "[SystemInfoClass] wmiGetWiFiCardName : return : "},
}};

struct SystemInfoMember {
    const char* name;
    const char* function;
    const char* words;
};

constexpr std::array<SystemInfoMember, 7> kSystemInfo = {{
    {"os", "WMIGetOSInfo", "os=====: "},
    {"bios", "WMIGetBiosVersion", "bios=====: "},
    {"bios_release_date", "WMIGetBiosReleaseDate", "bios_release_date=====: "},
    {"cpu", "WMIGetCPUInfo", "cpu==========: "},
    {"gpu", "WMIGetGPUInfo", "gpu==========: "},
    {"mem_size", "WMIGetMemSize", "mem_size==========: "},
    {"hdd", "WMIGetHDDInfo", "hdd==========: "},
}};

// Kept: as the C library converts in the "C" locale, character by character up to the first one beyond 255.
std::string NarrowWithoutLocale(const std::wstring& text) {
    const auto end =
        std::find_if(text.begin(), text.end(), [](wchar_t c) { return static_cast<std::uint32_t>(c) > 0xFF; });
    return NarrowBytes(std::wstring(text.begin(), end));
}

// All or nothing: a text that does not fit leaves an empty text. `outputSize` counts characters.
void CopyBounded(wchar_t* output, std::int32_t outputSize, const wchar_t* text) {
    if (output == nullptr || outputSize <= 0) {
        return;
    }
    const std::size_t length = std::wcslen(text);
    output[0] = L'\0';
    if (length < static_cast<std::size_t>(outputSize)) {
        std::wcscpy(output, text);
    }
}

// Every call that is not left by an exception writes these two trace lines around its work.
template <class Call>
void Traced(const std::string& name, Call call) {
    LogMessage("[SystemInfoClass] <-- " + name);
    call();
    LogMessage("[SystemInfoClass] --> " + name);
}

}  // namespace

void SystemInfoClass::BigDataServiceCall(const wchar_t* input, wchar_t* output, std::int32_t outputSize, std::int64_t) {
    Traced("BigDataServiceCall", [&] {
        LogMessageW(input);
        const std::string answer = BigDataServiceCallDispatcher(input);
        CopyBounded(output, outputSize, AnsiToWideBuffer(answer.c_str()).get());
        LogMessageW(output != nullptr && outputSize > 0 ? output : L"");
    });
}

void SystemInfoClass::SystemInfoDispatcher(std::int32_t function, std::int64_t cookie) {
    if (!JobLock().wait(60000)) {
        return;
    }
    switch (function) {
        case kGetModelName:
        case kGetSerialNumber:
        case kGetFamilyName:
        case kGetChassisTypes:
        case kGetProductName:
            platform::callback_text(NameText(function).c_str(), function, cookie);
            break;
        case kGetSystemInfoData:
            platform::callback_text(SystemInfoText().c_str(), function, cookie);
            break;
        case kGetBatteryHealthMode:
            platform::callback_integer(BatteryHealthMode(), function, cookie);
            break;
        case kGetQuietFanMode:
            platform::callback_integer(QuietFanMode(), function, cookie);
            break;
        case kGetMainSwitchByUser:
            platform::callback_flag(static_cast<std::uint8_t>(MainSwitch()), function, cookie);
            break;
        default:
            break;
    }
    JobLock().release();
}

std::string SystemInfoClass::NameText(std::int32_t function) {
    const auto& name =
        *std::find_if(kNames.begin(), kNames.end(), [=](const NameFunction& one) { return one.number == function; });
    ZorvWinIoDll zorvWinIoDll;
    TextBuffer buffer{};
    zorvWinIoDll.ReadWide(name.function, buffer.data(), kFlag);
    std::string text = NarrowBytes(WideText(buffer));  // Kept: characters beyond 255 are mangled
    LogMessage(name.words + text);
    return text;
}

std::wstring SystemInfoClass::ReadFromDllFunction(const std::string& name) {
    ZorvWinIoDll zorvWinIoDll;
    TextBuffer buffer{};
    for (const SystemInfoMember& member : kSystemInfo) {
        if (name == member.function) {
            zorvWinIoDll.ReadWide(member.function, buffer.data(), kFlag);
        }
    }
    return WideText(buffer);
}

Json SystemInfoClass::RetriveSystemInfoJson() {
    Json json = Json::object();
    for (const SystemInfoMember& member : kSystemInfo) {
        const std::string text = NarrowWithoutLocale(ReadFromDllFunction(member.function));
        LogMessage(member.words + text);
        json[member.name] = text;
    }
    LogMessage("json string: " + DumpJson(json));
    return json;
}

std::string SystemInfoClass::SystemInfoText() {
    std::string text = Utf8ToAnsi(DumpJson(RetriveSystemInfoJson()));
    LogMessage("[SystemInfoClass] GetSystemInfoData : return : " + text);
    return text;
}

std::int32_t SystemInfoClass::BatteryHealthMode() {
    return BatteryHealth().getBatteryHealth(kFlag);
}

std::int32_t SystemInfoClass::QuietFanMode() {
    return QuietFan().getQuietFan(kFlag);
}

std::int32_t SystemInfoClass::MainSwitch() {
    const std::wstring text = ReadRegString(kLocalMachine, kProductKey, L"MainSwitch");
    LogMessage("[SystemInfoClass] Func_GetMainSwitchByUser : return : " + WideToUtf8(text));
    return text == L"1" ? 1 : 0;  // Kept: a value that is missing reads as off here, although collecting is on then
}

void SystemInfoClass::GetTestDataFunc(std::int64_t value, std::int64_t cookie) {
    LogMessage("call GetTestDataFunc");
    LogMessage("get data : " + std::to_string(value));
    std::int64_t result = -1;
    {
        const platform::SharedLibrary library(L"zorvwmi.dll");
        if (!library.is_open()) {
            std::puts("Failed To Load Library");
        } else if (auto* const wmiadd = library.function<std::int32_t(std::int32_t)>("wmiadd")) {
            result = wmiadd(static_cast<std::int32_t>(value));
            LogMessage("call dll : " + std::to_string(result));
        }
    }
    LogMessage("+1 data : " + std::to_string(result));
    platform::callback_test_data(result, cookie);
}

void SystemInfoClass::GetModelName(std::int64_t cookie) {
    Traced("GetModelName", [&] { SystemInfoDispatcher(kGetModelName, cookie); });
}

void SystemInfoClass::GetSerialNumber(std::int64_t cookie) {
    Traced("GetSerialNumber", [&] { SystemInfoDispatcher(kGetSerialNumber, cookie); });
}

void SystemInfoClass::GetFamilyName(std::int64_t cookie) {
    Traced("GetFamilyName", [&] { SystemInfoDispatcher(kGetFamilyName, cookie); });
}

void SystemInfoClass::GetChassisTypes(std::int64_t cookie) {
    Traced("GetChassisTypes", [&] { SystemInfoDispatcher(kGetChassisTypes, cookie); });
}

void SystemInfoClass::GetProductName(std::int64_t cookie) {
    Traced("GetProductName", [&] { SystemInfoDispatcher(kGetProductName, cookie); });
}

void SystemInfoClass::GetBatteryHealthMode(std::int64_t cookie) {
    Traced("GetBatteryHealthMode", [&] { SystemInfoDispatcher(kGetBatteryHealthMode, cookie); });
}

void SystemInfoClass::GetQuietFanMode(std::int64_t cookie) {
    Traced("GetQuietFanMode", [&] { SystemInfoDispatcher(kGetQuietFanMode, cookie); });
}

void SystemInfoClass::GetSystemInfoData(std::int64_t cookie) {
    Traced("GetSystemInfoData", [&] { SystemInfoDispatcher(kGetSystemInfoData, cookie); });
}

void SystemInfoClass::GetMainSwitchByUser(std::int64_t cookie) {
    Traced("GetMainSwitchByUser", [&] { SystemInfoDispatcher(kGetMainSwitchByUser, cookie); });
}

void SystemInfoClass::GetVersionString(std::int64_t cookie) {
    Traced("GetVersionString", [&] { platform::callback_text(kServiceVersion, kGetVersionString, cookie); });
}

void SystemInfoClass::GetUUID(wchar_t* output, std::int32_t outputSize, std::int64_t) {
    Traced("GetUUID", [&] { CopyBounded(output, outputSize, AnsiToWideBuffer(getDeviceUUID().c_str()).get()); });
}

void SystemInfoClass::SetAppFolder(const wchar_t* path, std::int64_t) {
    Traced("SetAppFolder", [&] {
        JobManager::GetInstance().RequestAppFolder(path);
        JobManager::GetInstance().DoJob(L"jobSetAppFolder", 0, 0);
    });
}

void SystemInfoClass::SetBatteryHealth(std::int64_t value, std::int64_t cookie) {
    struct Mode {
        std::int64_t value;
        JobTrigger trigger;
        const wchar_t* words;
    };
    constexpr std::array<Mode, 3> kModes = {{
        {100, JOB_TRIGGER_BATTERY_HEALTH_100, L" SetBatteryHealth 100"},
        {80, JOB_TRIGGER_BATTERY_HEALTH_80, L" SetBatteryHealth 80"},
        {60, JOB_TRIGGER_BATTERY_HEALTH_60, L" SetBatteryHealth 60"},
    }};
    Traced("SetBatteryHealth", [&] {
        // Kept: the client hears its value back before anything is done, also one that is then ignored.
        platform::callback_integer(static_cast<std::int32_t>(value), kSetBatteryHealth, cookie);
        const auto* const mode =
            std::find_if(kModes.begin(), kModes.end(), [=](const Mode& one) { return one.value == value; });
        if (mode != kModes.end()) {
            JobManager::GetInstance().DoJob(L"jobSetBatteryHealth", mode->trigger, 0);
            JobManager::GetInstance().DoCollectJob(L"battery_health", mode->trigger, false, 0);
            ReportServiceEvent(mode->words, kInformation);
        }
    });
}

void SystemInfoClass::SetQuietFan(bool on, std::int64_t cookie) {
    const JobTrigger trigger = on ? JOB_TRIGGER_QUIET_FAN_ON : JOB_TRIGGER_QUIET_FAN_OFF;
    Traced("SetQuietFan", [&] {
        platform::callback_flag(on ? 1 : 0, kSetQuietFan, cookie);
        JobManager::GetInstance().DoJob(L"jobSetQuietFan", trigger, 0);
        JobManager::GetInstance().DoCollectJob(L"quiet_fan", trigger, false, 0);
        ReportServiceEvent(on ? L" SetQuietFan ON" : L" SetQuietFan OFF", kInformation);
    });
}

void SystemInfoClass::SetMainSwitchByUser(bool on, std::int64_t cookie) {
    Traced("SetMainSwitchByUser", [&] {
        JobManager::GetInstance().RequestMainSwitch(on ? 1 : 0);
        const bool done = JobManager::GetInstance().DoJob(L"jobSetMainSwitch", 0, 0) == 1;
        platform::callback_flag(done ? 1 : 0, kSetMainSwitchByUser, cookie);
        ReportServiceEvent(done ? L" MainSwitch True" : L" MainSwitch False", kInformation);
    });
}

void SystemInfoClass::SetMyZorvPP(const wchar_t* windowsAccount, const wchar_t* appName, const wchar_t* appVersion,
                                  const wchar_t* timeText, bool isAgreePP, std::int32_t* result, std::int64_t) {
    Traced("SetMyZorvPP", [&] {
        *result = 0;
        const bool complete =
            windowsAccount != nullptr && appName != nullptr && appVersion != nullptr && timeText != nullptr;
        if (complete && isAgreePP) {  // Kept: a refusal does not reach the library this way
            const SystemTime time = ParseSystemTime(WideByte2Ansi(timeText));
            *result = CallPP(windowsAccount, appName, appVersion, time, isAgreePP) ? 1 : 0;
        }
        LogMessage(std::to_string(*result));
    });
}

}  // namespace zorvalis
