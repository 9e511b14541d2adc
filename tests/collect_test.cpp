#include <gtest/gtest.h>

#include "collection/collectors.h"
#include "collection/dispatch.h"
#include "common/files.h"
#include "common/registry.h"
#include "platform/files.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

constexpr auto kTime = "1000000000";

using Collector = void (*)(std::string, std::int32_t, std::uint32_t);

void CollectAll(std::int32_t trigger, std::uint32_t mask) {
    for (const Collector collect :
         {collectBatteryPowerData, collectThermalData, collectSystemInfoData, collectUserBehaviorData}) {
        collect(kTime, trigger, mask);
    }
}

TEST(Collectors, DecideByMaskAndTrigger) {
    const struct {
        std::int32_t trigger;
        std::uint32_t mask;
        const char* stored;
    } cases[] = {
        {6, 0, ""},
        {6, 8, ""},
        {10, 2048, ""},
        {6, 7, "O Thermal 1, O Battery_Power 1, O SysInfo 1"},
        {0, 1, "O Thermal 1"},
        {25, 2, "O Battery_Power 1"},
        {9, 4, "O SysInfo 1"},
        {10, 19, "E Thermal 1, E Battery_Power 1, E UserBehavior 1"},
        {11, 23, "E UserBehavior 1"},
        {12, 35, "E UserBehavior 1"},
        {13, 35, "E Thermal 1, E Battery_Power 1, E UserBehavior 1"},
        {18, 256, "E UserBehavior 1"},
        {22, 512, "E UserBehavior 1"},
        {23, 1027, "W Thermal 1, W Battery_Power 1, W UserBehavior 1"},
        {24, 1024, "W UserBehavior 1"},
    };
    for (const auto& one : cases) {
        const Notebook machine;
        CollectAll(one.trigger, one.mask);
        EXPECT_EQ(machine.stored(), one.stored) << one.trigger << " " << one.mask;
    }
}

TEST(Collectors, FillEachTableToOneRowOverItsLimit) {
    const struct {
        std::int32_t trigger;
        const char* letter;
        int thermal, battery, system, behaviour;
    } cases[] = {{6, "O", 97, 289, 2, 1}, {13, "E", 109, 109, 1, 109}, {24, "W", 25, 25, 1, 25}};
    for (const auto& one : cases) {
        const Notebook machine;
        CollectAll(one.trigger, 0xFFFF);
        const auto fill = [&](const char* table, int most) {
            insert(FileOf(one.letter), "INSERT INTO " + std::string(table) +
                                           " (freq) WITH RECURSIVE n(i) AS (SELECT 3 UNION ALL SELECT i + 1 FROM n) "
                                           "SELECT 1 FROM n LIMIT " +
                                           std::to_string(std::max(most - 2, 0)));
        };
        fill("Thermal", one.thermal);
        fill("Battery_Power", one.battery);
        fill("SysInfo", one.system);
        fill("UserBehavior", one.behaviour);
        const auto expected = [&, letter = std::string(one.letter)](int less) {
            const auto count = [less](int most) { return std::to_string(std::max(most - less, 1)); };
            return letter + " Thermal " + count(one.thermal) + ", " + letter + " Battery_Power " + count(one.battery) +
                   ", " + letter + " SysInfo " + count(one.system) + ", " + letter + " UserBehavior " +
                   count(one.behaviour);
        };
        ASSERT_EQ(machine.stored(), expected(1));
        CollectAll(one.trigger, 0xFFFF);
        EXPECT_EQ(machine.stored(), expected(0));
        CollectAll(one.trigger, 0xFFFF);
        EXPECT_EQ(machine.stored(), expected(0));
        EXPECT_EQ(machine.data_files().size(), 1U);
    }
}

TEST(Collectors, ClearTheFlagInRowsOfClassWAlone) {
    Notebook machine;
    machine.change_hardware(R"({"System_Read_VolumeLevel": {"value": 40, "flag0": 99},
                                "WMIGetHDDTemp": {"value": "36", "flag0": "zero"}})");
    const char* const sql = "SELECT volume_level, disk_temp FROM Thermal";
    for (const auto& [trigger, letter, row] : {std::tuple{23, "W", "99 zero"}, {6, "O", "40 36"}, {10, "E", "40 36"}}) {
        collectThermalData(kTime, trigger, 1);
        EXPECT_EQ(machine.row(letter, sql), row) << letter;
    }
}

TEST(Collectors, PutAnEventsTimeIntoItsOwnColumn) {
    const std::string time = "2001-09-09 ";
    const struct {
        std::int32_t trigger;
        const char* column;
        const char* mode;
    } cases[] = {{11, "power_off", "NULL"},
                 {13, "resume", "NULL"},
                 {14, "ac_in", "NULL"},
                 {17, "lid_close", "NULL"},
                 {18, "quiet_fan_on", "NULL"},
                 {20, "battery_health_mode_change", "80"},
                 {22, "battery_health_mode_change", "80"},
                 {19, "quiet_fan_off", "NULL"},
                 {23, "wmi1", "NULL"},
                 {5, "local_time", "NULL"}};
    for (const auto& one : cases) {
        Notebook machine;
        machine.change_hardware(R"({"WMIGetBatteryHealth": 80})");
        collectUserBehaviorData(kTime, one.trigger, 16);
        const char* const letter = LetterOf(classOfTrigger(one.trigger));
        std::string columns;
        for (const char* column :
             {"power_on", "power_off", "suspend", "resume", "battery_health_mode_change", "quiet_fan_on",
              "quiet_fan_off", "ac_in", "ac_out", "lid_open", "lid_close", "wmi1", "wmi2"}) {
            if (machine.row(letter, std::string("SELECT ") + column + " = local_time FROM UserBehavior") == "1") {
                columns += column;
            }
        }
        EXPECT_EQ(columns, one.trigger == 5 ? "" : one.column) << one.trigger;
        EXPECT_EQ(machine.row(letter, "SELECT battery_health_mode, freq FROM UserBehavior"),
                  one.mode + (" " + std::to_string(one.trigger)));
    }
}

TEST(Collectors, StoreDefaultsForNumbersAndNullForTextsThatCannotBeRead) {
    constexpr char kFailing[] = R"({"Thermal_Read_Cpu_Temperature": {"fail": true}, "CPU_ReadCPUUsage": {"fail": true},
        "Thermal_Read_Fan": {"fail": true}, "WMIGetHDDTemp": "", "System_Read_VolumeLevel": {"fail": true}})";
    const struct {
        const char* hardware;
        void (Notebook::*change)();
        const char* row;
    } cases[] = {
        {"{}", &Notebook::remove_library, "0 0.0 NULL NULL 0"},
        {"{}", &Notebook::replace_library, "41 0.0 NULL NULL 0"},
        {"{}", nullptr, "48 0.0 NULL NULL 0"},
        {kFailing, nullptr, "4294967295 -1.0 NULL NULL -1"},
    };
    for (const auto& one : cases) {
        Notebook machine;
        machine.change_hardware(one.hardware);
        if (one.change != nullptr) {
            (machine.*one.change)();
        }
        collectThermalData(kTime, 6, 1);
        EXPECT_EQ(machine.row("O", "SELECT cpu_temp, cpu_usage, rpm_fans, disk_temp, volume_level FROM Thermal"),
                  one.row);
        EXPECT_EQ(machine.row("O", "SELECT guid FROM Thermal").size(), 36U);
    }
}

TEST(Collectors, LoseASampleWhoseTextHoldsAQuote) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetHDDTemp": "36'43"})");
    collectThermalData(kTime, 6, 1);
    EXPECT_EQ(machine.stored(), "");
    ExpectEventLog({" [SQ][insert] Error executing statemant on"});
    machine.change_hardware(R"({"WMIGetHDDTemp": "36\u20ac"})");
    collectThermalData(kTime, 6, 1);
    EXPECT_EQ(machine.row("O", "SELECT disk_temp FROM Thermal"), "36\xE2\x82\xAC");
}

TEST(Collectors, StoreNothingInADataFolderThatCannotBeMade) {
    const Notebook machine;
    write_text(std::string(kProductFolder) + "data", "a file in its place");
    CollectAll(6, 7);
    EXPECT_EQ(read_text(std::string(kProductFolder) + "data"), "a file in its place");
    const std::string words = " [SQ][init] Error Init ";
    ExpectEventLog({words, words, words});
}

TEST(Collectors, MirrorSystemInformationIntoTheRegistry) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetModelName": "Lumen", "WMIGetBiosVersion": "L1442.304",
                                "Battery_Read_DesignedCapacity": 63000})");
    collectSystemInfoData(kTime, 8, 4);
    for (const auto& [name, text] : std::map<std::wstring, std::wstring>{
             {L"guid", L"00112233-4455-6677-8899-aabbccddeeff"},
             {L"service_version", L"2.0.6.0"},
             {L"bios_version", L"L1442.304"},
             {L"battery_design_capacity", L"63000"},
             {L"win32_x86_app_list", L"NULL"},
             {L"model_name", ERROR_READREG},
             {L"local_time", ERROR_READREG},
             {L"freq", ERROR_READREG},
         }) {
        EXPECT_EQ(Value(name), text);
    }
    machine.change_hardware(R"({"WMIGetBiosVersion": "L1442.305"})");
    collectSystemInfoData(kTime, 8, 4);
    EXPECT_EQ(Value(L"bios_version"), L"L1442.305");
    EXPECT_EQ(machine.row("O", "SELECT model_name, freq, server_time FROM SysInfo"), "Lumen 8 NULL");
}

TEST(Collectors, GiveAFileAllFourTables) {
    const Notebook machine;
    createAllTables("X.db", DbClass::periodic);
    std::string tables;
    for (const auto& row : machine.query("X.db", "SELECT name FROM sqlite_master")) {
        tables += row[0] + " ";
    }
    EXPECT_EQ(tables, "SysInfo Thermal Battery_Power UserBehavior ");
}

TEST(Collectors, TakeTheSerialNumberOnlyIntoItsOwnColumn) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetSN": "ZL 14"})");
    DataCollector collector(CollectionKind::Thermal);
    for (const std::int32_t index : {0, 3, 4}) {  // without a source, and two direct reads
        collector.rows[index].specialFlag = 1;
        collector.rows[index].columnName = index == 4 ? "cpu_temp" : "serial_number";
    }
    const SampleRow row = RetrieveData(collector);
    EXPECT_EQ(row[0], "NULL");
    EXPECT_EQ(row[3], "ZL14");
    EXPECT_EQ(row[4], "NULL");
}

TEST(Dispatchers, ServeTheirOwnNamesInTheFormOfEach) {
    Notebook machine;
    machine.change_hardware(R"({"Thermal_Read_Cpu_Temperature": -1, "Battery_Read_Current": -874,
        "CPU_ReadCPUUsage": 12.5, "Battery_Read_ASOC": 94.8, "Thermal_Read_Fan": "2410, 2380",
        "System_GetCountryCode_ISO2": "D\u00cb", "WMIGetMonitorBrightness": {"value": 70, "flag0": -1},
        "WMIGetQuietFan": 257, "WMIGetGPUInfo": {"value": "Iris \u00ae", "flag0": "plain"}, "EC_ReadEcChipId": 7,
        "WMIGetBoardUUID": "7d1c"})");
    const struct {
        const char* name;
        const char* direct;
        const char* wmi;   // with the flag at 1
        const char* wmi0;  // and at 0
    } cases[] = {
        {"Thermal_Read_Cpu_Temperature", "4294967295", "", ""},
        {"Battery_Read_Current", "-874", "", ""},
        {"CPU_ReadCPUUsage", "12.500000", "", ""},
        {"Battery_Read_ASOC", "94.800003", "", ""},
        {"Thermal_Read_Fan", "2410, 2380", "", ""},
        {"Battery_Read_CellVoltage", "", "", ""},
        {"System_GetCountryCode_ISO2", "D\xC3\x8B", "", ""},
        {"System_Read_VolumeLevel", "", "0", "0"},
        {"WMIGetMonitorBrightness", "", "70", "-1"},
        {"WMIGetQuietFan", "", "1", "1"},
        {"WMIGetGPUInfo", "", "Iris \xC2\xAE", "plain"},
        {"WMIGetBoardUUID", "", "7d1c", "7d1c"},
        {"GetServiceVersion", "2.0.6.0", "2.0.6.0", "2.0.6.0"},
        {"GetRandomUUID", "00112233-4455-6677-8899-aabbccddeeff", "00112233-4455-6677-8899-aabbccddeeff",
         "00112233-4455-6677-8899-aabbccddeeff"},
        {"EC_ReadEcChipId", "", "", ""},
        {"wmigetgpuinfo", "", "", ""},
        {"NA", "", "", ""},
        {"", "", "", ""},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(DispatchDirect(one.name), one.direct) << one.name;
        EXPECT_EQ(DispatchWmi(one.name, 1), one.wmi) << one.name;
        EXPECT_EQ(DispatchWmi(one.name, 0), one.wmi0) << one.name;
    }
}

// A misspelt name, or one that the other dispatcher serves, would leave its column empty for ever.
TEST(Catalogues, NameFunctionsThatTheirDispatcherServes) {
    Notebook machine;
    std::string answers;
    const std::array kinds = {CollectionKind::Battery_Power, CollectionKind::SysInfo, CollectionKind::Thermal,
                              CollectionKind::UserBehavior};
    for (const CollectionKind kind : kinds) {
        for (const MetricRow& row : CatalogueOf(kind)) {
            const bool text = row.resultKind == 1 || row.resultKind == 2;
            answers += (answers.empty() ? "{\"" : ", \"") + row.functionName + "\": " + (text ? "\"7\"" : "7");
        }
    }
    machine.change_hardware(answers + "}");
    for (const CollectionKind kind : kinds) {
        const DataCollector collector(kind);
        const SampleRow values = RetrieveData(collector);
        for (std::int32_t index = 0; index < collector.columnCount; ++index) {
            const MetricRow& row = collector.rows[index];
            EXPECT_EQ(values[index].substr(0, 1), row.sourceKind == kNoSource               ? "N"
                                                  : row.functionName == "GetRandomUUID"     ? "0"
                                                  : row.functionName == "GetServiceVersion" ? "2"
                                                                                            : "7")
                << row.columnName;
        }
    }
}

}  // namespace
}  // namespace zorvalis
