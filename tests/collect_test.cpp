#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include "collection/collectors.h"
#include "collection/dispatch.h"
#include "store/telemetry_db.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

constexpr auto kTime = "1000000000";

void CollectAll(std::int32_t trigger, std::uint32_t mask) {
    collectBatteryPowerData(kTime, trigger, mask);
    collectThermalData(kTime, trigger, mask);
    collectSystemInfoData(kTime, trigger, mask);
    collectUserBehaviorData(kTime, trigger, mask);
}

TEST(Collectors, DecideByMaskAndTrigger) {
    const struct {
        std::int32_t trigger;
        std::uint32_t mask;
        const char* stored;
    } cases[] = {{6, 8, ""},
                 {10, 2048, ""},
                 {6, 7, "O Thermal 1, O Battery_Power 1, O SysInfo 1"},
                 {0, 1, "O Thermal 1"},
                 {25, 2, "O Battery_Power 1"},
                 {9, 4, "O SysInfo 1"},
                 {10, 19, "E Thermal 1, E Battery_Power 1, E UserBehavior 1"},
                 {11, 23, "E UserBehavior 1"},
                 {12, 35, "E UserBehavior 1"},
                 {13, 35, "E Thermal 1, E Battery_Power 1, E UserBehavior 1"},
                 {22, 512, "E UserBehavior 1"},
                 {23, 1027, "W Thermal 1, W Battery_Power 1, W UserBehavior 1"},
                 {24, 1024, "W UserBehavior 1"}};
    for (const auto& one : cases) {
        const Notebook machine;
        CollectAll(one.trigger, one.mask);
        EXPECT_EQ(machine.stored(), one.stored) << one.trigger << " " << one.mask;
    }
}

TEST(Collectors, FillEachTableToOneRowOverItsLimit) {
    const std::array tables = {"Thermal", "Battery_Power", "SysInfo", "UserBehavior"};
    for (const auto& [trigger, letter, limits] : {std::tuple{6, "O", std::array{97, 289, 2, 1}},
                                                  {13, "E", std::array{109, 109, 1, 109}},
                                                  {24, "W", std::array{25, 25, 1, 25}}}) {
        const Notebook machine;
        CollectAll(trigger, 0xFFFF);
        std::string full;
        for (std::size_t table = 0; table < tables.size(); ++table) {  // all but one of what is missing
            insert(FileOf(letter), "INSERT INTO " + std::string(tables[table]) + " (freq) WITH RECURSIVE n(i) AS " +
                                       "(SELECT 3 UNION ALL SELECT i + 1 FROM n) SELECT 1 FROM n LIMIT " +
                                       std::to_string(std::max(limits[table] - 2, 0)));
            full += (full.empty() ? "" : ", ") + std::string(letter) + " " + tables[table] + " " +
                    std::to_string(limits[table]);
        }
        EXPECT_NE(machine.stored(), full);
        CollectAll(trigger, 0xFFFF);
        EXPECT_EQ(machine.stored(), full);
        CollectAll(trigger, 0xFFFF);
        EXPECT_EQ(machine.stored(), full);
    }
}

TEST(Collectors, ClearTheFlagInRowsOfClassWAlone) {
    Notebook machine;
    machine.change_hardware(R"({"System_Read_VolumeLevel": {"value": 40, "flag0": 99},
                                "WMIGetHDDTemp": {"value": "36", "flag0": "zero"}})");
    for (const auto& [trigger, letter, row] : {std::tuple{23, "W", "99 zero"}, {6, "O", "40 36"}, {10, "E", "40 36"}}) {
        collectThermalData(kTime, trigger, 1);
        EXPECT_EQ(machine.row(letter, "SELECT volume_level, disk_temp FROM Thermal"), row) << letter;
    }
}

TEST(Collectors, PutAnEventsTimeIntoItsOwnColumnAndKeepTheModeOfAModeChange) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetBatteryHealth": 80})");
    for (const auto& [trigger, column, mode] : {std::tuple{11, "power_off", "NULL"},
                                                {13, "resume", "NULL"},
                                                {14, "ac_in", "NULL"},
                                                {17, "lid_close", "NULL"},
                                                {19, "quiet_fan_off", "NULL"},
                                                {20, "battery_health_mode_change", "80"},
                                                {22, "battery_health_mode_change", "80"},
                                                {23, "wmi1", "NULL"},
                                                {5, "", "NULL"}}) {
        collectUserBehaviorData(kTime, trigger, 16);
        std::string columns;
        for (const MetricRow& row : CatalogueOf(CollectionKind::UserBehavior)) {
            const auto events = "SELECT " + row.columnName + " = local_time FROM UserBehavior ORDER BY rowid DESC";
            if (row.columnName != "local_time" && machine.row(LetterOf(classOfTrigger(trigger)), events) == "1") {
                columns += row.columnName;
            }
        }
        EXPECT_EQ(columns, column) << trigger;
        EXPECT_EQ(machine.row(LetterOf(classOfTrigger(trigger)),
                              "SELECT freq, battery_health_mode FROM UserBehavior ORDER BY rowid DESC"),
                  std::to_string(trigger) + " " + mode);
    }
}

TEST(Collectors, StoreDefaultsForNumbersAndNullForTextsThatCannotBeRead) {
    constexpr char kFailing[] = R"({"Thermal_Read_Cpu_Temperature": {"fail": true}, "CPU_ReadCPUUsage": {"fail": true},
        "Thermal_Read_Fan": {"fail": true}, "WMIGetHDDTemp": "", "System_Read_VolumeLevel": {"fail": true}})";
    const struct {
        const char* hardware;
        void (*change)(Notebook&);
        const char* row;
    } cases[] = {{"{}", [](Notebook& it) { it.remove_library(); }, "0 0.0 NULL NULL 0 36"},
                 {"{}", [](Notebook& it) { it.replace_library(); }, "41 0.0 NULL NULL 0 36"},
                 {"{}", [](Notebook&) {}, "48 0.0 NULL NULL 0 36"},
                 {kFailing, [](Notebook&) {}, "4294967295 -1.0 NULL NULL -1 36"}};
    for (const auto& one : cases) {
        Notebook machine;
        machine.change_hardware(one.hardware);
        one.change(machine);
        collectThermalData(kTime, 6, 1);
        EXPECT_EQ(machine.row("O",
                              "SELECT cpu_temp, cpu_usage, rpm_fans, disk_temp, volume_level, length(guid) "
                              "FROM Thermal"),
                  one.row);
    }
}

TEST(Collectors, StoreNothingInADataFolderThatCannotBeMade) {
    const Notebook machine;
    write_text(std::string(kProductFolder) + "data", "a file in its place");
    CollectAll(6, 3);
    EXPECT_EQ(read_text(std::string(kProductFolder) + "data"), "a file in its place");
    ExpectEventLog({" [SQ][init] Error Init ", " [SQ][init] Error Init "});
}

TEST(Collectors, MirrorSystemInformationIntoTheRegistry) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetModelName": "Lumen", "WMIGetBiosVersion": "L1442.304"})");
    collectSystemInfoData(kTime, 8, 4);
    for (const auto& [name, text] :
         std::map<std::wstring, std::wstring>{{L"guid", L"00112233-4455-6677-8899-aabbccddeeff"},
                                              {L"bios_version", L"L1442.304"},
                                              {L"win32_x86_app_list", L"NULL"},
                                              {L"model_name", ERROR_READREG},
                                              {L"local_time", ERROR_READREG},
                                              {L"freq", ERROR_READREG}}) {
        EXPECT_EQ(Value(name), text);
    }
    machine.change_hardware(R"({"WMIGetBiosVersion": "L1442.305"})");
    collectSystemInfoData(kTime, 8, 4);
    EXPECT_EQ(Value(L"bios_version"), L"L1442.305");
    EXPECT_EQ(machine.row("O", "SELECT model_name, freq, server_time FROM SysInfo"), "Lumen 8 NULL");
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
    EXPECT_EQ(row[0] + " " + row[3] + " " + row[4], "NULL ZL14 NULL");
}

TEST(Dispatchers, ServeTheirOwnNamesInTheFormOfEach) {
    Notebook machine;
    machine.change_hardware(R"({"Thermal_Read_Cpu_Temperature": -1, "Battery_Read_Current": -874,
        "Battery_Read_ASOC": 94.8, "Thermal_Read_Fan": "2410, 2380", "System_GetCountryCode_ISO2": "D\u00cb",
        "WMIGetMonitorBrightness": {"value": 70, "flag0": -1}, "WMIGetQuietFan": 257, "EC_ReadEcChipId": 7,
        "WMIGetGPUInfo": {"value": "Iris \u00ae", "flag0": "plain"}, "WMIGetBoardUUID": "7d1c"})");
    const struct {
        const char* name;
        const char* direct;
        const char* wmi;   // with the flag at 1
        const char* wmi0;  // and at 0
    } cases[] = {{"Thermal_Read_Cpu_Temperature", "4294967295", "", ""},
                 {"Battery_Read_Current", "-874", "", ""},
                 {"Battery_Read_ASOC", "94.800003", "", ""},
                 {"Thermal_Read_Fan", "2410, 2380", "", ""},
                 {"System_GetCountryCode_ISO2", "D\xC3\x8B", "", ""},
                 {"WMIGetMonitorBrightness", "", "70", "-1"},
                 {"WMIGetQuietFan", "", "1", "1"},
                 {"WMIGetGPUInfo", "", "Iris \xC2\xAE", "plain"},
                 {"WMIGetBoardUUID", "", "7d1c", "7d1c"},
                 {"GetServiceVersion", "2.0.6.0", "2.0.6.0", "2.0.6.0"},
                 {"EC_ReadEcChipId", "", "", ""},
                 {"wmigetgpuinfo", "", "", ""}};
    for (const auto& one : cases) {
        EXPECT_EQ(DispatchDirect(one.name), one.direct) << one.name;
        EXPECT_EQ(DispatchWmi(one.name, 1), one.wmi) << one.name;
        EXPECT_EQ(DispatchWmi(one.name, 0), one.wmi0) << one.name;
    }
}

// A misspelt name, or one that the other dispatcher serves, would leave its column empty for ever.
TEST(Catalogues, NameFunctionsThatTheirDispatcherServes) {
    for (const CollectionKind kind : {CollectionKind::Battery_Power, CollectionKind::SysInfo, CollectionKind::Thermal,
                                      CollectionKind::UserBehavior}) {
        Notebook machine;
        const DataCollector collector(kind);
        std::string answers;
        for (const MetricRow& row : collector.rows) {
            answers += (answers.empty() ? "{\"" : ", \"") + row.functionName + "\": \"a text\"";
        }
        machine.change_hardware(answers + "}");
        const SampleRow values = RetrieveData(collector);
        for (std::int32_t index = 0; index < collector.columnCount; ++index) {
            const MetricRow& row = collector.rows[index];
            EXPECT_EQ(values[index] == "NULL", row.sourceKind == kNoSource) << row.columnName;
        }
    }
}

}  // namespace
}  // namespace zorvalis
