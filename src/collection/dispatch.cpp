// One table, kChain, tells for each function which dispatcher serves it, how it is called and how its result becomes
// text.
#include "collection/dispatch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "collection/zorv_win_io_dll.h"
#include "common/device_identity.h"
#include "common/version.h"
#include "common/wide_to_utf8.h"

namespace zorvalis {
namespace {

// Which dispatcher serves a name. `none` is a function of the library that no column can be filled with.
enum class Side { direct, wmi, both, none };

// How the function is called and its result turned into text.
enum class Read {
    nothing,
    service_version,
    device_uuid,
    board_uuid,
    unsigned_integer,
    signed_integer,
    floating_double,
    floating_float,
    narrow_text,
    wide_text,
    flagged_integer,
    flagged_byte,
    flagged_text,
};

struct Function {
    std::string_view name;
    Side side;
    Read read;
};

constexpr std::array<Function, 84> kChain = {{
    {"InitializeWinIo", Side::none, Read::nothing},
    {"ShutdownWinIo", Side::none, Read::nothing},
    {"GetRefCount", Side::none, Read::nothing},
    {"GetIoDllVersion", Side::none, Read::nothing},
    {"GetDriverVersion", Side::none, Read::nothing},
    {"GetServiceVersion", Side::both, Read::service_version},
    {"CPU_ReadCpuId", Side::none, Read::nothing},
    {"CPU_ReadCPUUsage", Side::direct, Read::floating_double},
    {"EC_ReadEcChipId", Side::none, Read::nothing},
    {"EC_ReadEcChipName", Side::none, Read::nothing},
    {"EC_ReadEcFwRev", Side::none, Read::nothing},
    {"Thermal_Read_Cpu_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_BoardTS0L_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_BoardTS0R_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_GpuTS1L_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_GpuTS1R_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_BatteryConnector_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_ACFET_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_ChargerChoke_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_GpuVrm_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_UpCpu_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_GpuVram_Temperature", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_CpuPackagePower", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_CpuDptf_PowerLimit1", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_CpuDptf_PowerLimit2", Side::direct, Read::unsigned_integer},
    {"Thermal_Read_Fan", Side::direct, Read::narrow_text},
    {"Battery_Read_CellVoltage", Side::direct, Read::narrow_text},
    {"Battery_Read_PackageVoltage", Side::direct, Read::unsigned_integer},
    {"Battery_Read_ManufactureDate", Side::direct, Read::narrow_text},
    {"Battery_Read_ManufactureName", Side::direct, Read::narrow_text},
    {"Battery_Get_LidStatus", Side::direct, Read::unsigned_integer},
    {"Battery_Read_Current", Side::direct, Read::signed_integer},
    {"Battery_Read_Temperature", Side::direct, Read::unsigned_integer},
    {"Battery_Read_DesignedCapacity", Side::direct, Read::unsigned_integer},
    {"Battery_Read_FullChargedCapcity", Side::direct, Read::unsigned_integer},  // Kept: the library's spelling
    {"Battery_Read_ASOC", Side::direct, Read::floating_float},
    {"Battery_Read_Capacity", Side::direct, Read::unsigned_integer},
    {"Battery_Read_ChargingVoltage", Side::direct, Read::unsigned_integer},
    {"Battery_Read_CycleCount", Side::direct, Read::unsigned_integer},
    {"Battery_Read_CapacityPercentage", Side::direct, Read::signed_integer},
    {"Power_Read_ACDCMode", Side::direct, Read::signed_integer},
    {"System_Read_TabletMode", Side::direct, Read::signed_integer},
    {"System_Read_LocalTime", Side::direct, Read::narrow_text},
    {"System_GetCountryCode_ISO2", Side::direct, Read::wide_text},
    {"System_Read_VolumeLevel", Side::wmi, Read::flagged_integer},
    {"WMICheckBatteryHealthSupport", Side::none, Read::nothing},
    {"WMIGetBatteryHealth", Side::wmi, Read::flagged_integer},
    {"WMISetBatteryHealth", Side::none, Read::nothing},
    {"WMICheckQuietFanSupport", Side::none, Read::nothing},
    {"WMIGetQuietFan", Side::wmi, Read::flagged_byte},
    {"WMISetQuietFan", Side::none, Read::nothing},
    {"WMIGetExternMonitorNum", Side::wmi, Read::flagged_integer},
    {"WMIGetMonitorBrightness", Side::wmi, Read::flagged_integer},
    {"WMIGetCPUUsg", Side::wmi, Read::flagged_integer},
    {"WMIGetBoardUUID", Side::wmi, Read::board_uuid},
    {"WMIGetMacAddress", Side::wmi, Read::flagged_text},
    {"WMIGetComputerFamilyName", Side::wmi, Read::flagged_text},
    {"WMIGetGPUInfo", Side::wmi, Read::flagged_text},
    {"WMIGetOSInfo", Side::wmi, Read::flagged_text},
    {"WMIGetCPUInfo", Side::wmi, Read::flagged_text},
    {"WMIGetMemModel", Side::wmi, Read::flagged_text},
    {"WMIGetHDDInfo", Side::wmi, Read::flagged_text},
    {"WMIGetHDDSize", Side::wmi, Read::flagged_text},
    {"WMIGetHDDCaption", Side::wmi, Read::flagged_text},
    {"WMIGetHDDTemp", Side::wmi, Read::flagged_text},
    {"WMIGetHDDModel", Side::wmi, Read::flagged_text},
    {"WMIGetSSDModel", Side::wmi, Read::flagged_text},
    {"WMIGetLCDModel", Side::wmi, Read::flagged_text},
    {"WMIGetSN", Side::wmi, Read::flagged_text},
    {"WMIGetModelName", Side::wmi, Read::flagged_text},
    {"WMIGetMemSize", Side::wmi, Read::flagged_text},
    {"WMIGetOSCountryCode", Side::wmi, Read::flagged_text},
    {"WMIGetMemManufacture", Side::wmi, Read::flagged_text},
    {"WMIGetBiosReleaseDate", Side::wmi, Read::flagged_text},
    {"WMIGetBiosManufacture", Side::wmi, Read::flagged_text},
    {"WMIGetBiosVersion", Side::wmi, Read::flagged_text},
    {"WMIGet90Number", Side::wmi, Read::flagged_text},
    {"WMIGetSystemChassisTypes", Side::none, Read::nothing},
    {"WMISetAppPath", Side::none, Read::nothing},
    {"WMIGetProductName", Side::none, Read::nothing},
    {"App_Get_Win32App", Side::none, Read::nothing},
    {"App_Get_Win32WOW6432App", Side::none, Read::nothing},
    {"App_Get_UWPApp", Side::none, Read::nothing},
    {"GetRandomUUID", Side::both, Read::device_uuid},
}};

// With six digits behind the point.
std::string Fixed(double value) {
    std::array<char, 400> text{};
    std::snprintf(text.data(), text.size(), "%f", value);
    return text.data();
}

std::string ReadAsText(ZorvWinIoDll& zorvWinIoDll, const Function& function, std::uint8_t flag) {
    const char* const name = function.name.data();  // of a literal, so it ends with a NUL
    WideBuffer wide{};
    NarrowBuffer narrow{};
    switch (function.read) {
        case Read::nothing:
            return "";
        case Read::service_version:
            return kServiceVersion;
        case Read::device_uuid:
            return getDeviceUUID();
        case Read::unsigned_integer:
            return std::to_string(zorvWinIoDll.ReadInteger(name));
        case Read::signed_integer:
            return std::to_string(static_cast<std::int32_t>(zorvWinIoDll.ReadInteger(name)));
        case Read::floating_double:
            return Fixed(zorvWinIoDll.ReadDouble(name));
        case Read::floating_float:
            return Fixed(double{zorvWinIoDll.ReadFloat(name)});
        case Read::narrow_text:
            zorvWinIoDll.ReadNarrow(name, narrow.data());
            return NarrowText(narrow);
        case Read::flagged_integer:
            return std::to_string(zorvWinIoDll.ReadFlagged(name, flag));
        case Read::flagged_byte:
            return std::to_string(zorvWinIoDll.ReadFlaggedByte(name, flag));
        case Read::board_uuid:
            zorvWinIoDll.wmiGetBoardUUID(wide.data(), flag);
            return WideToUtf8(WideText(wide));
        case Read::wide_text:
            zorvWinIoDll.ReadWide(name, wide.data());
            return WideToUtf8(WideText(wide));
        case Read::flagged_text:
            zorvWinIoDll.ReadWide(name, wide.data(), flag);
            return WideToUtf8(WideText(wide));
    }
    return "";
}

std::string Dispatch(const std::string& name, Side side, std::uint8_t flag) {
    ZorvWinIoDll zorvWinIoDll;
    const auto* const function =
        std::find_if(kChain.begin(), kChain.end(), [&](const Function& one) { return one.name == name; });
    if (function == kChain.end() || (function->side != side && function->side != Side::both)) {
        return "";
    }
    return ReadAsText(zorvWinIoDll, *function, flag);
}

}  // namespace

std::string DispatchWmi(const std::string& name, std::uint8_t wmiFlag) {
    return Dispatch(name, Side::wmi, wmiFlag);
}

std::string DispatchDirect(const std::string& name) {
    return Dispatch(name, Side::direct, 0);
}

}  // namespace zorvalis
