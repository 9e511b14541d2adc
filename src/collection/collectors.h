// The four collectors: each takes one sample of its kind and stores it as one row. They decide by mask and trigger
// whether to run at all, and by the table's row count whether to store. They report no failure: what goes wrong is in
// the logs. Callers hold the job lock.
#pragma once

#include <cstdint>
#include <string>

#include "collection/data_collector.h"

namespace zorvalis {

// `timeText` is the sample's time as decimal seconds since 1970, `triggerType` why it is taken (stored in `freq`),
// `funcMask` the kinds that are due: each collector looks at its own bits.
void collectBatteryPowerData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);
void collectThermalData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);
void collectSystemInfoData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);
void collectUserBehaviorData(std::string timeText, std::int32_t triggerType, std::uint32_t funcMask);

// Reads every column that has a source, each through the hardware library. All others, and those that read as an empty
// text, are "NULL".
SampleRow RetrieveData(const DataCollector& collector);

// Whether a table with `count` rows takes another one. Kept: it does at its limit too, so a table holds one row more
// than its limit. canStoreData counts and then asks this.
bool TakesAnotherRow(DbClass dbClass, const std::string& tableName, std::int32_t count);
bool canStoreData(const DataCollector& collector, const std::string& dbName, const std::string& tableName);
// 0 for a table that is not one of the four.
std::int32_t getRecordLimit(DbClass dbClass, const std::string& tableName);

// Inserts the row; when that fails, the sample is lost.
void storeData(const DataCollector& collector, const SampleRow& row);

// Makes sure that the collector's table exists in its file.
void genDB(const DataCollector& collector);

// Makes all four tables in one file, also those of kinds that have never stored a row there. Makes a missing file too.
void createAllTables(const std::string& dbName, DbClass dbClass);

// Copies each system information value from `guid` on to a registry value named like its column, and traces whether
// any has changed.
void updateSystemInfoRegistry(SampleRow row);

}  // namespace zorvalis
