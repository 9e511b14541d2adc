// The catalogues as data. A new sensor is a row here; docs/design.md lists what else it needs.
#include "collection/metric_catalogue.h"

#include "collection/triggers.h"

namespace zorvalis {
namespace {

// The members of a row: columnName, typeWord, resultKind, sourceKind, functionName, dispatchIndex, wmiFlag, specialFlag
// (metric_row.h). The order of rows is the order of columns in the database. The tables are never destroyed, since pool
// threads may still read them while the process ends. Kept: server_time and the three application lists have no source
// and are NULL in every row; other columns with "NA" are set by the collector.

// clang-format off
const MetricCatalogue& kBatteryPower = *new MetricCatalogue{
    {"local_time", "DATE", 0, 3, "NA", 1, 0, 0},
    {"freq", "INTEGER", 0, 3, "NA", 1, 0, 0},
    {"guid", "STRING", 2, 0, "GetRandomUUID", 0, 1, 0},
    {"full_capacity", "INTEGER", 3, 1, "Battery_Read_FullChargedCapcity", 1, 0, 0},
    {"current_capacity", "INTEGER", 3, 1, "Battery_Read_Capacity", 1, 0, 0},
    {"charging_voltage", "INTEGER", 3, 1, "Battery_Read_ChargingVoltage", 1, 0, 0},
    {"cyclecount", "INTEGER", 3, 1, "Battery_Read_CycleCount", 1, 0, 0},
    {"cellvoltages", "STRING", 1, 1, "Battery_Read_CellVoltage", 1, 0, 0},
    {"current", "INTEGER", 7, 1, "Battery_Read_Current", 1, 0, 0},
    {"temperature", "INTEGER", 4, 1, "Battery_Read_Temperature", 1, 0, 0},
    {"ac_dc", "INTEGER", 7, 1, "Power_Read_ACDCMode", 1, 0, 0},
    {"current_batteryhealth_mode", "INTEGER", 7, 0, "WMIGetBatteryHealth", 0, 1, 0},
    {"acfet", "INTEGER", 4, 1, "Thermal_Read_ACFET_Temperature", 1, 0, 0},
    {"charger_choke", "INTEGER", 4, 1, "Thermal_Read_ChargerChoke_Temperature", 1, 0, 0},
    {"battery_connector", "INTEGER", 4, 1, "Thermal_Read_BatteryConnector_Temperature", 1, 0, 0},
    {"vr_thermal_ch1", "INTEGER", 4, 1, "Thermal_Read_GpuVrm_Temperature", 1, 0, 0},
    {"lid_status", "INTEGER", 4, 1, "Battery_Get_LidStatus", 1, 0, 0},
    {"quiet_fan_status", "INTEGER", 9, 0, "WMIGetQuietFan", 0, 1, 0},
    {"package_voltage", "INTEGER", 4, 1, "Battery_Read_PackageVoltage", 1, 0, 0},
};
// clang-format on

// clang-format off
const MetricCatalogue& kSysInfo = *new MetricCatalogue{
    {"model_name", "STRING", 2, 0, "WMIGetModelName", 0, 1, 0},
    {"local_time", "DATE", 0, 3, "NA", 1, 0, 0},
    {"freq", "INTEGER", 0, 3, "NA", 1, 0, 0},
    {"guid", "STRING", 2, 0, "GetRandomUUID", 0, 1, 0},
    {"service_version", "STRING", 0, 2, "GetServiceVersion", 1, 0, 0},
    {"server_time", "DATE", 0, 3, "NA", 1, 0, 0},
    {"bios_version", "STRING", 2, 0, "WMIGetBiosVersion", 0, 1, 0},
    {"bios_releasedate", "DATE", 2, 0, "WMIGetBiosReleaseDate", 0, 1, 0},
    {"bios_family_name", "STRING", 2, 0, "WMIGetComputerFamilyName", 0, 1, 0},
    {"bios_manufacturer", "STRING", 2, 0, "WMIGetBiosManufacture", 0, 1, 0},
    {"dimm_model", "STRING", 2, 0, "WMIGetMemModel", 0, 1, 0},
    {"hdd_model", "STRING", 2, 0, "WMIGetHDDModel", 0, 1, 0},
    {"ssd_model", "STRING", 2, 0, "WMIGetSSDModel", 0, 1, 0},
    {"windows_version", "STRING", 2, 0, "WMIGetOSInfo", 0, 1, 0},
    {"graphic_card_model", "STRING", 2, 0, "WMIGetGPUInfo", 0, 1, 0},
    {"cpu_info", "STRING", 2, 0, "WMIGetCPUInfo", 0, 1, 0},
    {"disk_size", "STRING", 2, 0, "WMIGetHDDSize", 0, 1, 0},
    {"memory_size", "STRING", 2, 0, "WMIGetMemSize", 0, 1, 0},
    {"battery_manufacture_date", "DATE", 1, 1, "Battery_Read_ManufactureDate", 1, 0, 0},
    {"battery_manufacture_name", "STRING", 1, 1, "Battery_Read_ManufactureName", 1, 0, 0},
    {"battery_design_capacity", "INTEGER", 3, 1, "Battery_Read_DesignedCapacity", 1, 0, 0},
    {"uwp_app_list", "STRING", 0, 3, "NA", 1, 0, 0},
    {"win32_x64_app_list", "STRING", 0, 3, "NA", 1, 0, 0},
    {"win32_x86_app_list", "STRING", 0, 3, "NA", 1, 0, 0},
};
// clang-format on

// clang-format off
// Kept: volume_level is a direct read (1) by its sourceKind, but its dispatchIndex, which decides, is that of the reads
// with a flag (0): its function takes one.
const MetricCatalogue& kThermal = *new MetricCatalogue{
    {"local_time", "DATE", 0, 3, "NA", 1, 0, 0},
    {"freq", "INTEGER", 0, 3, "NA", 1, 0, 0},
    {"guid", "STRING", 2, 0, "GetRandomUUID", 0, 1, 0},
    {"cpu_temp", "INTEGER", 4, 1, "Thermal_Read_Cpu_Temperature", 1, 0, 0},
    {"gpu_temp", "INTEGER", 4, 1, "Thermal_Read_GpuTS1L_Temperature", 1, 0, 0},
    {"board_temp", "INTEGER", 4, 1, "Thermal_Read_BoardTS0L_Temperature", 1, 0, 0},
    {"disk_temp", "STRING", 2, 0, "WMIGetHDDTemp", 0, 1, 0},
    {"cpu_usage", "DOUBLE", 8, 1, "CPU_ReadCPUUsage", 1, 0, 0},
    {"max_pl1", "INTEGER", 4, 1, "Thermal_Read_CpuDptf_PowerLimit1", 1, 0, 0},
    {"max_pl2", "INTEGER", 4, 1, "Thermal_Read_CpuDptf_PowerLimit2", 1, 0, 0},
    {"rpm_fans", "STRING", 1, 1, "Thermal_Read_Fan", 1, 0, 0},
    {"package_power", "INTEGER", 4, 1, "Thermal_Read_CpuPackagePower", 1, 0, 0},
    {"vr_thermal_ch2", "INTEGER", 4, 1, "Thermal_Read_UpCpu_Temperature", 1, 0, 0},
    {"vr_thermal_ch3", "INTEGER", 4, 1, "Thermal_Read_GpuVram_Temperature", 1, 0, 0},
    {"volume_level", "INTEGER", 7, 1, "System_Read_VolumeLevel", 0, 1, 0},
    {"ac_dc", "INTEGER", 7, 1, "Power_Read_ACDCMode", 1, 0, 0},
    {"brightness_level", "INTEGER", 7, 0, "WMIGetMonitorBrightness", 0, 1, 0},
    {"panel_mode", "INTEGER", 7, 1, "System_Read_TabletMode", 1, 0, 0},
    {"external_monitor", "INTEGER", 7, 0, "WMIGetExternMonitorNum", 0, 1, 0},
};
// clang-format on

// clang-format off
const MetricCatalogue& kUserBehavior = *new MetricCatalogue{
    {"local_time", "DATE", 0, 3, "NA", 1, 0, 0},
    {"freq", "INTEGER", 0, 3, "NA", 1, 0, 0},
    {"guid", "STRING", 2, 0, "GetRandomUUID", 0, 1, 0},
    {"power_on", "DATE", 0, 3, "NA", 1, 0, 0},
    {"power_off", "DATE", 0, 3, "NA", 1, 0, 0},
    {"suspend", "DATE", 0, 3, "NA", 1, 0, 0},
    {"resume", "DATE", 0, 3, "NA", 1, 0, 0},
    {"battery_health_mode_change", "DATE", 0, 3, "NA", 1, 0, 0},
    {"battery_health_mode", "INTEGER", 7, 0, "WMIGetBatteryHealth", 0, 1, 0},
    {"quiet_fan_on", "DATE", 0, 3, "NA", 1, 0, 0},
    {"quiet_fan_off", "DATE", 0, 3, "NA", 1, 0, 0},
    {"ac_in", "DATE", 0, 3, "NA", 1, 0, 0},
    {"ac_out", "DATE", 0, 3, "NA", 1, 0, 0},
    {"lid_open", "DATE", 0, 3, "NA", 1, 0, 0},
    {"lid_close", "DATE", 0, 3, "NA", 1, 0, 0},
    {"wmi1", "DATE", 0, 3, "NA", 1, 0, 0},
    {"wmi2", "DATE", 0, 3, "NA", 1, 0, 0},
};
// clang-format on

// Job trigger and column of UserBehavior.
std::map<std::int32_t, std::int32_t>& eventColumns = *new std::map<std::int32_t, std::int32_t>{
    {JOB_TRIGGER_POWER_ON, 3},
    {JOB_TRIGGER_POWER_OFF, 4},
    {JOB_TRIGGER_SUSPEND, 5},
    {JOB_TRIGGER_RESUME, 6},
    {JOB_TRIGGER_AC_IN, 11},
    {JOB_TRIGGER_AC_OUT, 12},
    {JOB_TRIGGER_LID_OPEN, 13},
    {JOB_TRIGGER_LID_CLOSE, 14},
    {JOB_TRIGGER_QUIET_FAN_ON, 9},
    {JOB_TRIGGER_QUIET_FAN_OFF, 10},
    {JOB_TRIGGER_BATTERY_HEALTH_100, 7},
    {JOB_TRIGGER_BATTERY_HEALTH_80, 7},
    {JOB_TRIGGER_BATTERY_HEALTH_60, 7},
    {JOB_TRIGGER_WMI_DGPU, 15},
    {JOB_TRIGGER_WMI_CONNECTOR, 16},
};

}  // namespace

const char* TableName(CollectionKind kind) {
    switch (kind) {
        case CollectionKind::Battery_Power:
            return "Battery_Power";
        case CollectionKind::SysInfo:
            return "SysInfo";
        case CollectionKind::Thermal:
            return "Thermal";
        case CollectionKind::UserBehavior:
            break;
    }
    return "UserBehavior";
}

const MetricCatalogue& CatalogueOf(CollectionKind kind) {
    switch (kind) {
        case CollectionKind::Battery_Power:
            return kBatteryPower;
        case CollectionKind::SysInfo:
            return kSysInfo;
        case CollectionKind::Thermal:
            return kThermal;
        case CollectionKind::UserBehavior:
            break;
    }
    return kUserBehavior;
}

std::map<std::int32_t, std::int32_t>& EventColumns() {
    return eventColumns;
}

}  // namespace zorvalis
