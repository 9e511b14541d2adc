// The hardware library that pass-bench and floor-pass load: what a pass asks of it, each export with a constant. It
// stands for a library that costs nothing, so that only loading and freeing it is measured.
#include <cstdint>
#include <cstring>
#include <cwchar>

#define ZORV_EXPORT extern "C" __attribute__((visibility("default")))
#define ZORV_NUMBER(type, name) \
    ZORV_EXPORT type name() {   \
        return 1;               \
    }
#define ZORV_NARROW(name)                   \
    ZORV_EXPORT void name(char* buffer) {   \
        std::memcpy(buffer, "constant", 9); \
    }
// A pass goes on when the enclosure is called so.
#define ZORV_WIDE(name)                                       \
    ZORV_EXPORT void name(wchar_t* buffer) {                  \
        std::memcpy(buffer, L"Notebook", sizeof L"Notebook"); \
    }
// Successful, and the record stays as the caller made it.
#define ZORV_RECORD(name)         \
    ZORV_EXPORT int name(void*) { \
        return 0;                 \
    }

ZORV_NUMBER(std::int32_t, InitializeWinIo)
ZORV_EXPORT void ShutdownWinIo() {}

ZORV_NUMBER(double, CPU_ReadCPUUsage)
ZORV_NUMBER(std::uint8_t, WMIGetQuietFan)
ZORV_NUMBER(std::uint32_t, Battery_Get_LidStatus)
ZORV_NUMBER(std::uint32_t, Battery_Read_Capacity)
ZORV_NUMBER(std::uint32_t, Battery_Read_ChargingVoltage)
ZORV_NUMBER(std::uint32_t, Battery_Read_Current)
ZORV_NUMBER(std::uint32_t, Battery_Read_CycleCount)
ZORV_NUMBER(std::uint32_t, Battery_Read_DesignedCapacity)
ZORV_NUMBER(std::uint32_t, Battery_Read_FullChargedCapcity)
ZORV_NUMBER(std::uint32_t, Battery_Read_PackageVoltage)
ZORV_NUMBER(std::uint32_t, Battery_Read_Temperature)
ZORV_NUMBER(std::uint32_t, Power_Read_ACDCMode)
ZORV_NUMBER(std::uint32_t, System_Read_TabletMode)
ZORV_NUMBER(std::uint32_t, System_Read_VolumeLevel)
ZORV_NUMBER(std::uint32_t, Thermal_Read_ACFET_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_BatteryConnector_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_BoardTS0L_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_ChargerChoke_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_CpuDptf_PowerLimit1)
ZORV_NUMBER(std::uint32_t, Thermal_Read_CpuDptf_PowerLimit2)
ZORV_NUMBER(std::uint32_t, Thermal_Read_CpuPackagePower)
ZORV_NUMBER(std::uint32_t, Thermal_Read_Cpu_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_GpuTS1L_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_GpuVram_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_GpuVrm_Temperature)
ZORV_NUMBER(std::uint32_t, Thermal_Read_UpCpu_Temperature)
ZORV_NUMBER(std::uint32_t, WMIGetBatteryHealth)
ZORV_NUMBER(std::uint32_t, WMIGetExternMonitorNum)
ZORV_NUMBER(std::uint32_t, WMIGetMonitorBrightness)

ZORV_NARROW(Battery_Read_CellVoltage)
ZORV_NARROW(Battery_Read_ManufactureDate)
ZORV_NARROW(Battery_Read_ManufactureName)
ZORV_NARROW(Thermal_Read_Fan)

ZORV_WIDE(WMIGetBiosManufacture)
ZORV_WIDE(WMIGetBiosReleaseDate)
ZORV_WIDE(WMIGetBiosVersion)
ZORV_WIDE(WMIGetCPUInfo)
ZORV_WIDE(WMIGetComputerFamilyName)
ZORV_WIDE(WMIGetGPUInfo)
ZORV_WIDE(WMIGetHDDModel)
ZORV_WIDE(WMIGetHDDSize)
ZORV_WIDE(WMIGetHDDTemp)
ZORV_WIDE(WMIGetMemModel)
ZORV_WIDE(WMIGetMemSize)
ZORV_WIDE(WMIGetModelName)
ZORV_WIDE(WMIGetOSInfo)
ZORV_WIDE(WMIGetSSDModel)
ZORV_WIDE(WMIGetSystemChassisTypes)

ZORV_RECORD(GPNV_Get_RandomUUID)
ZORV_RECORD(GPNV_Get_ActivatedTime)
