// SQL over database files. A schema comes from a metric catalogue; statements are plain text, with no escaping of any
// kind; each operation is a whole cycle of open, work and close on a file that rests transformed. Under the job lock.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "collection/metric_row.h"
#include "store/telemetry_handle.h"

namespace zorvalis {

// `columnCount` of `rows` and `values` are used.
std::string buildCreateTable(const std::string& tableName, const MetricCatalogue& rows, std::int32_t columnCount);
std::string buildInsert(const std::string& tableName, const MetricCatalogue& rows, const SampleRow& values,
                        std::int32_t columnCount);

// `dbName` is a file name in the data folder. Failures go to the logs; a row whose insert fails is lost.
void initDB(const std::string& dbName, const std::string& sql);
void insert(const std::string& dbName, const std::string& sql);

// 9999 for every failure, which is above every limit, so that nothing is stored when the count can't be had.
std::int32_t totalRecord(const std::string& dbName, const std::string& tableName);

// The row callback of totalRecord and its context: the count, or the error of a value that is no number, which may not
// pass through SQLite and is raised once the cycle has ended.
struct RecordCount {
    std::int32_t count = 9999;
    std::exception_ptr error;
};
int totalRecordCallback(void* context, int columns, char** values, char** names);

// A cycle for callers that run several statements on `handle.db`. The result is SQLite's; when it is not 0 there is no
// connection. `key` 0 means the default key.
int openDB(const std::string& dbName, TelemetryDb& handle, std::uint8_t key = 0);
void closeDB(TelemetryDb& handle, std::uint8_t key = 0);

}  // namespace zorvalis
