// The four collectors: each takes one sample of its kind and stores it as one row. They decide by mask and trigger
// whether to run at all, and by the table's row count whether to store. Nothing is returned and no failure leaves
// them. All run under the job lock.
#pragma once

#include <cstdint>
#include <string>

#include "collection/data_collector.h"

namespace zorvalis {

// `timeText`: the sample's time as decimal seconds since 1970.
void collectBatteryPowerData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);
void collectThermalData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);
void collectSystemInfoData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);
void collectUserBehaviorData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);

// Reads every column that has a source; the others stay "NULL".
SampleRow RetrieveData(const DataCollector& collector);

// Whether the table has room: its count is not greater than the limit, so a table holds limit plus one rows.
bool canStoreData(const DataCollector& collector, const std::string& dbName, const std::string& tableName);
std::int32_t getRecordLimit(DbClass dbClass, const std::string& tableName);

void storeData(const DataCollector& collector, const SampleRow& row);

// Makes sure that the collector's table exists in its file.
void genDB(const DataCollector& collector);

// Makes all four tables in one file, whichever kinds have stored a row there.
void createAllTables(const std::string& dbName, DbClass dbClass);

// Keeps a registry copy of each system information value from `guid` on, so that a change can be seen.
void updateSystemInfoRegistry(SampleRow row);

}  // namespace zorvalis
