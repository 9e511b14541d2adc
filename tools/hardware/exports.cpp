// The exports of the stand-in library, each with the signature of the real one. Each call opens hardware.json anew
// (hardware_file.h); only the count of users is kept between calls. Any thread.
#include <atomic>
#include <cstdint>

#include "hardware_file.h"
#include "json_text.h"
#include "nv_storage.h"

#ifdef _WIN32
#define ZORV_EXPORT extern "C" __declspec(dllexport)
#else
#define ZORV_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace zorvalis {
namespace {

constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;  // the failure of an integer call
constexpr int kTextCapacity = 150;              // units that a caller's buffer holds, terminator included

std::atomic<std::uint32_t> users{0};

// The answer of the export `name`; `flag` is the flag byte that the caller gave.
std::uint32_t Integer(const char* name, std::uint8_t flag = 1) {
    HardwareFile file;
    const Answer answer = file.Ask(name, flag);
    std::uint32_t value = answer.kind == Answer::Kind::failed ? kAllOnes : 0;
    ReadInteger(answer.value, value);
    return value;
}

double Floating(const char* name) {
    HardwareFile file;
    const Answer answer = file.Ask(name);
    double value = answer.kind == Answer::Kind::failed ? -1.0 : 0.0;
    ReadNumber(answer.value, value);
    return value;
}

template <class Char>
void Text(const char* name, Char* buffer, std::uint8_t flag = 1) {
    HardwareFile file;
    const Answer answer = file.Ask(name, flag);
    if (buffer != nullptr && !answer.value.empty()) {
        CopyText(answer.value, buffer, kTextCapacity, answer.bare);
    }
}

// Writes `json` into `member`, which the getter reads. A member of the setter's own name can make the call fail or go
// missing, or set its status.
std::int32_t Set(const char* setter, const char* member, std::uint8_t flag, std::string_view json) {
    HardwareFile file(FileText::Purpose::change);
    const Answer own = file.Ask(setter, flag);
    if (own.kind == Answer::Kind::missing || own.kind == Answer::Kind::failed) {
        return own.kind == Answer::Kind::failed ? -1 : 0;
    }
    std::uint32_t result = 1;
    if (!ReadInteger(own.result, result)) {
        ReadInteger(own.value, result);
    }
    switch (file.Store(member, json)) {
        case HardwareFile::Stored::done:
            return static_cast<std::int32_t>(result);
        case HardwareFile::Stored::absent:
            return 0;
        case HardwareFile::Stored::failed:
            break;
    }
    return -1;
}

std::int32_t SetNumber(const char* setter, const char* member, std::uint8_t flag, std::int32_t number) {
    Line json;
    json.Add(std::int64_t{number});
    return Set(setter, member, flag, json.view());
}

}  // namespace
}  // namespace zorvalis

using namespace zorvalis;  // NOLINT: the exports lie outside

ZORV_EXPORT std::int32_t InitializeWinIo() {
    ++users;
    return 1;
}

ZORV_EXPORT void ShutdownWinIo() {
    --users;
}

ZORV_EXPORT std::uint32_t GetRefCount() {
    return users;
}

#define ZORV_INTEGER(name)             \
    ZORV_EXPORT std::uint32_t name() { \
        return Integer(#name);         \
    }
#define ZORV_NARROW(name)                 \
    ZORV_EXPORT void name(char* buffer) { \
        Text(#name, buffer);              \
    }
#define ZORV_WIDE(name)                      \
    ZORV_EXPORT void name(wchar_t* buffer) { \
        Text(#name, buffer);                 \
    }
#define ZORV_FLAGGED(name)                              \
    ZORV_EXPORT std::uint32_t name(std::uint8_t flag) { \
        return Integer(#name, flag);                    \
    }
#define ZORV_FLAGGED_TEXT(name)                                 \
    ZORV_EXPORT void name(wchar_t* buffer, std::uint8_t flag) { \
        Text(#name, buffer, flag);                              \
    }

ZORV_INTEGER(GetIoDllVersion)
ZORV_INTEGER(GetDriverVersion)
ZORV_INTEGER(CPU_ReadCpuId)
ZORV_INTEGER(EC_ReadEcChipId)
ZORV_INTEGER(EC_ReadEcChipName)
ZORV_INTEGER(EC_ReadEcFwRev)
ZORV_INTEGER(Thermal_Read_Cpu_Temperature)
ZORV_INTEGER(Thermal_Read_BoardTS0L_Temperature)
ZORV_INTEGER(Thermal_Read_BoardTS0R_Temperature)
ZORV_INTEGER(Thermal_Read_GpuTS1L_Temperature)
ZORV_INTEGER(Thermal_Read_GpuTS1R_Temperature)
ZORV_INTEGER(Thermal_Read_BatteryConnector_Temperature)
ZORV_INTEGER(Thermal_Read_ACFET_Temperature)
ZORV_INTEGER(Thermal_Read_ChargerChoke_Temperature)
ZORV_INTEGER(Thermal_Read_GpuVrm_Temperature)
ZORV_INTEGER(Thermal_Read_UpCpu_Temperature)
ZORV_INTEGER(Thermal_Read_GpuVram_Temperature)
ZORV_INTEGER(Thermal_Read_CpuPackagePower)
ZORV_INTEGER(Thermal_Read_CpuDptf_PowerLimit1)
ZORV_INTEGER(Thermal_Read_CpuDptf_PowerLimit2)
ZORV_INTEGER(Battery_Read_PackageVoltage)
ZORV_INTEGER(Battery_Get_LidStatus)
ZORV_INTEGER(Battery_Read_Current)
ZORV_INTEGER(Battery_Read_Temperature)
ZORV_INTEGER(Battery_Read_DesignedCapacity)
ZORV_INTEGER(Battery_Read_FullChargedCapcity)
ZORV_INTEGER(Battery_Read_Capacity)
ZORV_INTEGER(Battery_Read_ChargingVoltage)
ZORV_INTEGER(Battery_Read_CycleCount)
ZORV_INTEGER(Battery_Read_CapacityPercentage)
ZORV_INTEGER(Power_Read_ACDCMode)
ZORV_INTEGER(System_Read_TabletMode)

ZORV_EXPORT double CPU_ReadCPUUsage() {
    return Floating("CPU_ReadCPUUsage");
}

ZORV_EXPORT float Battery_Read_ASOC() {
    return static_cast<float>(Floating("Battery_Read_ASOC"));
}

ZORV_NARROW(Thermal_Read_Fan)
ZORV_NARROW(Battery_Read_CellVoltage)
ZORV_NARROW(Battery_Read_ManufactureDate)
ZORV_NARROW(Battery_Read_ManufactureName)
ZORV_NARROW(System_Read_LocalTime)
ZORV_WIDE(System_GetCountryCode_ISO2)
ZORV_WIDE(App_Get_Win32App)
ZORV_WIDE(App_Get_Win32WOW6432App)
ZORV_WIDE(App_Get_UWPApp)

ZORV_FLAGGED(System_Read_VolumeLevel)
ZORV_FLAGGED(WMICheckBatteryHealthSupport)
ZORV_FLAGGED(WMIGetBatteryHealth)
ZORV_FLAGGED(WMICheckQuietFanSupport)
ZORV_FLAGGED(WMIGetExternMonitorNum)
ZORV_FLAGGED(WMIGetMonitorBrightness)
ZORV_FLAGGED(WMIGetCPUUsg)

ZORV_EXPORT std::uint8_t WMIGetQuietFan(std::uint8_t flag) {
    return static_cast<std::uint8_t>(Integer("WMIGetQuietFan", flag));
}

ZORV_FLAGGED_TEXT(WMIGetBoardUUID)
ZORV_FLAGGED_TEXT(WMIGetMacAddress)
ZORV_FLAGGED_TEXT(WMIGetComputerFamilyName)
ZORV_FLAGGED_TEXT(WMIGetGPUInfo)
ZORV_FLAGGED_TEXT(WMIGetOSInfo)
ZORV_FLAGGED_TEXT(WMIGetCPUInfo)
ZORV_FLAGGED_TEXT(WMIGetMemModel)
ZORV_FLAGGED_TEXT(WMIGetHDDInfo)
ZORV_FLAGGED_TEXT(WMIGetHDDSize)
ZORV_FLAGGED_TEXT(WMIGetHDDCaption)
ZORV_FLAGGED_TEXT(WMIGetHDDTemp)
ZORV_FLAGGED_TEXT(WMIGetHDDModel)
ZORV_FLAGGED_TEXT(WMIGetSSDModel)
ZORV_FLAGGED_TEXT(WMIGetLCDModel)
ZORV_FLAGGED_TEXT(WMIGetSN)
ZORV_FLAGGED_TEXT(WMIGetModelName)
ZORV_FLAGGED_TEXT(WMIGetMemSize)
ZORV_FLAGGED_TEXT(WMIGetOSCountryCode)
ZORV_FLAGGED_TEXT(WMIGetMemManufacture)
ZORV_FLAGGED_TEXT(WMIGetBiosReleaseDate)
ZORV_FLAGGED_TEXT(WMIGetBiosManufacture)
ZORV_FLAGGED_TEXT(WMIGetBiosVersion)
ZORV_FLAGGED_TEXT(WMIGet90Number)
ZORV_FLAGGED_TEXT(WMIGetSystemChassisTypes)
ZORV_FLAGGED_TEXT(WMIGetProductName)
ZORV_FLAGGED_TEXT(WMIGetWiFiCardName)

ZORV_EXPORT std::int32_t WMISetBatteryHealth(std::int32_t mode, std::uint8_t flag) {
    return SetNumber("WMISetBatteryHealth", "WMIGetBatteryHealth", flag, mode);
}

ZORV_EXPORT std::int32_t WMISetQuietFan(std::uint8_t on, std::uint8_t flag) {
    return SetNumber("WMISetQuietFan", "WMIGetQuietFan", flag, on);
}

ZORV_EXPORT std::int32_t WMISetAppPath(const wchar_t* path, std::uint8_t flag) {
    Line json;
    AddQuoted(json, path != nullptr ? path : L"");
    return json.whole() ? Set("WMISetAppPath", "WMISetAppPath", flag, json.view()) : -1;
}

#define ZORV_RECORD(name)                                                  \
    ZORV_EXPORT std::int32_t GPNV_Get_##name(std::uint8_t* record) {       \
        return ReadRecord(kNv##name, record);                              \
    }                                                                      \
    ZORV_EXPORT std::int32_t GPNV_Set_##name(const std::uint8_t* record) { \
        return WriteRecord(kNv##name, record);                             \
    }

ZORV_RECORD(RandomUUID)
ZORV_RECORD(ActivatedTime)
ZORV_RECORD(ManufacturedTime)
