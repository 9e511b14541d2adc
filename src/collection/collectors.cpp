// The four collectors are one procedure, Collect, and a row of Collector for each.
#include "collection/collectors.h"

#include <array>
#include <string_view>

#include "base/text.h"
#include "collection/dispatch.h"
#include "common/device_identity.h"
#include "common/log.h"
#include "common/registry.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"

namespace zorvalis {
namespace {

// What tells the four collectors apart.
struct Collector {
    CollectionKind kind;
    std::uint32_t mask;
    bool atPowerOff;  // runs also for power off and suspend
    const char* retrieving;
    const char* triggered;
};

constexpr std::uint32_t kAnyEvent =
    CJ_POWERONOFF | CJ_SUSPENDRESUME | CJ_ACDC | CJ_LIDOPENCLOSE | CJ_QUIETFAN | CJ_BATTERYHEALTH | CJ_WMIEVENT;

constexpr Collector kBatteryPower = {CollectionKind::Battery_Power, CJ_BATTERYPOWER, false,
                                     "[collectBatteryPowerData] bp data retrieving",
                                     "[collectBatteryPowerData] bp triggerType= "};
constexpr Collector kThermal = {CollectionKind::Thermal, CJ_THERMAL, false,
                                "[collectThermalData] thermal data retrieving",
                                "[collectThermalData] thermal triggerType= "};
constexpr Collector kSystemInfo = {CollectionKind::SysInfo, CJ_SYSTEMINFO, false,
                                   "[collectSystemInfoData] sysinfo data retrieving",
                                   "[collectSystemInfoData] sysinfo triggerType= "};
constexpr Collector kUserBehavior = {CollectionKind::UserBehavior, kAnyEvent, true,
                                     "[collectUserBehaviorData] ub data retrieving",
                                     "[collectUserBehaviorData] ub triggerType= "};

struct RecordLimits {
    DbClass dbClass;
    std::string_view tableName;
    std::int32_t limit;
};

constexpr std::array<RecordLimits, 12> RecordLimitTable = {{
    {DbClass::periodic, "Thermal", 96},
    {DbClass::periodic, "Battery_Power", 288},
    {DbClass::periodic, "SysInfo", 1},
    {DbClass::periodic, "UserBehavior", 0},
    {DbClass::event, "Thermal", 108},
    {DbClass::event, "Battery_Power", 108},
    {DbClass::event, "SysInfo", 0},
    {DbClass::event, "UserBehavior", 108},
    {DbClass::wmi_event, "Thermal", 24},
    {DbClass::wmi_event, "Battery_Power", 24},
    {DbClass::wmi_event, "SysInfo", 0},
    {DbClass::wmi_event, "UserBehavior", 24},
}};

constexpr std::int32_t kBatteryHealthMode = 8;  // the column of UserBehavior that has a value at a mode change only

void SetEvent(const DataCollector& collector, SampleRow& row, const std::string& timeText) {
    setEventTimeColumn(row, collector.triggerType, timeText);
    if (collector.triggerType < JOB_TRIGGER_BATTERY_HEALTH_100 ||
        collector.triggerType > JOB_TRIGGER_BATTERY_HEALTH_60) {
        row[kBatteryHealthMode] = "NULL";
    }
    // Kept: the spelling of the line.
    LogMessage("[collectUserBehaviorData] columnnnnnn= " + row[EventColumns()[collector.triggerType]]);
}

void Collect(const Collector& words, const std::string& timeText, std::int32_t triggerType, std::uint32_t funcMask) {
    const bool goesDown = triggerType == JOB_TRIGGER_POWER_OFF || triggerType == JOB_TRIGGER_SUSPEND;
    if ((funcMask & words.mask) == 0 || (goesDown && !words.atPowerOff)) {
        return;
    }
    DataCollector collector(words.kind);
    collector.triggerType = triggerType;
    collector.dbClass = classOfTrigger(triggerType);
    collector.dbName = LetterOf(collector.dbClass);
    if (collector.dbClass == DbClass::wmi_event) {
        for (MetricRow& row : collector.rows) {
            row.wmiFlag = 0;
        }
    }
    setDbPath(collector);
    genDB(collector);  // Kept: for every sample, also when the table turns out to be full
    if (!canStoreData(collector, collector.dbName, collector.tableName)) {
        return;
    }
    LogMessage(words.retrieving);
    SampleRow row = RetrieveData(collector);
    setFreqColumn(collector, row, triggerType);
    setLocalTimeColumn(collector, row, timeText);
    LogMessage(words.triggered + row[1]);  // Kept: the line tells `freq`, but in SysInfo element 1 is `local_time`
    if (words.kind == CollectionKind::SysInfo) {
        updateSystemInfoRegistry(row);
    }
    if (words.kind == CollectionKind::UserBehavior) {
        SetEvent(collector, row, timeText);
    }
    storeData(collector, row);
}

}  // namespace

void collectBatteryPowerData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask) {
    Collect(kBatteryPower, timeText, triggerType, funcMask);
}

void collectThermalData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask) {
    Collect(kThermal, timeText, triggerType, funcMask);
}

void collectSystemInfoData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask) {
    Collect(kSystemInfo, timeText, triggerType, funcMask);
}

void collectUserBehaviorData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask) {
    Collect(kUserBehavior, timeText, triggerType, funcMask);
}

SampleRow RetrieveData(const DataCollector& collector) {
    LogMessage("in RetrieveData===============>");
    SampleRow row(collector.columnCount, "NULL");
    for (std::int32_t index = 0; index < collector.columnCount; ++index) {
        const MetricRow& metric = collector.rows[index];
        std::string& element = row[index];
        if (metric.sourceKind == kNoSource) {
            continue;
        }
        if (metric.specialFlag == 1) {  // no row has it: the one way to a column named "serial_number"
            if (metric.columnName == "serial_number") {
                element = getSerialNumber();
            }
        } else if (metric.dispatchIndex == INDEX_WMI) {
            LogMessage("~~~>INDEX_WMI : " + metric.functionName);
            element = DispatchWmi(metric.functionName, metric.wmiFlag);
        } else {
            LogMessage("~~~> ELSE : " + metric.functionName);
            element = DispatchDirect(metric.functionName);
        }
        if (element.empty()) {
            element = "NULL";
        }
    }
    LogMessage("finish RetrieveData");
    LogMessage("out RetrieveData===============>");
    return row;
}

bool canStoreData(const DataCollector& collector, const std::string& dbName, const std::string& tableName) {
    LogMessage("in canStoreData:============>");
    const std::int32_t count = totalRecord(dbName, tableName);
    const std::int32_t limit = getRecordLimit(collector.dbClass, tableName);
    LogMessage("canStoreData dbname: " + dbName + " tablename: " + tableName +
               " totalrecords: " + std::to_string(count) + " limit: " + std::to_string(limit));
    LogMessage("out canStoreData:============>");
    return TakesAnotherRow(collector.dbClass, tableName, count);
}

bool TakesAnotherRow(DbClass dbClass, const std::string& tableName, std::int32_t count) {
    return count <= getRecordLimit(dbClass, tableName);  // Kept: not "less than"
}

std::int32_t getRecordLimit(DbClass dbClass, const std::string& tableName) {
    for (const RecordLimits& one : RecordLimitTable) {
        if (one.dbClass == dbClass && one.tableName == tableName) {
            return one.limit;
        }
    }
    return 0;
}

void storeData(const DataCollector& collector, const SampleRow& row) {
    LogMessage("in storeData===============>");
    insert(collector.dbName, buildInsert(collector.tableName, collector.rows, row, collector.columnCount));
    LogMessage("out storeData===============>");
}

void genDB(const DataCollector& collector) {
    initDB(collector.dbName, buildCreateTable(collector.tableName, collector.rows, collector.columnCount));
}

void createAllTables(const std::string& dbName, DbClass dbClass) {
    for (const CollectionKind kind : {CollectionKind::SysInfo, CollectionKind::Thermal, CollectionKind::Battery_Power,
                                      CollectionKind::UserBehavior}) {
        DataCollector collector(kind);
        collector.dbName = dbName;
        collector.dbClass = dbClass;
        genDB(collector);
    }
}

void updateSystemInfoRegistry(SampleRow row) {
    constexpr std::size_t kFirst = 3;  // model_name, local_time and freq are not kept
    const MetricCatalogue& catalogue = CatalogueOf(CollectionKind::SysInfo);
    std::size_t updated = 0;
    for (std::size_t index = kFirst; index < catalogue.size(); ++index) {
        const std::wstring name = WidenBytes(catalogue[index].columnName);
        const std::wstring text = WidenBytes(row[index]);
        const std::wstring stored = ReadRegString(kLocalMachine, kProductKey, name);
        if (stored == ERROR_READREG || stored != text) {
            WriteRegString(kLocalMachine, kProductKey, name, text);
            updated = 1;
        }
    }
    // Kept: after a change the line lacks its first letter, "sUpdated: ".
    LogMessage(std::string("isUpdated: ").substr(updated));
}

}  // namespace zorvalis
