// SQL over database files. The columns of a table come from a metric catalogue, statements are plain text, and each
// operation is a whole cycle of open, work and close on a file that rests transformed (db_file.h). Callers hold the job
// lock.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "collection/metric_row.h"
#include "store/telemetry_handle.h"

namespace zorvalis {

// The statements for a table and for one row of it, from the first `columnCount` of `rows` and `values`. Kept: values
// are not escaped, so a quote in one of them breaks the statement and the row is lost.
std::string buildCreateTable(const std::string& tableName, const MetricCatalogue& rows, std::int32_t columnCount);
std::string buildInsert(const std::string& tableName, const MetricCatalogue& rows, const SampleRow& values,
                        std::int32_t columnCount);

// Run a schema statement, and an insert, on the file `dbName` of the data folder. Only initDB makes that folder. A
// failure is only logged; a row whose insert fails is lost.
void initDB(const std::string& dbName, const std::string& sql);
void insert(const std::string& dbName, const std::string& sql);

// How many rows the table has. 9999 for every failure: more than any limit allows, so nothing is stored when the rows
// cannot be counted.
std::int32_t totalRecord(const std::string& dbName, const std::string& tableName);

// SQLite's row callback in totalRecord, and its context. No exception may pass through SQLite's C code: the error of a
// value that is not a number waits in `error`, and totalRecord throws it afterwards.
struct RecordCount {
    std::int32_t count = 9999;
    std::exception_ptr error;
};
int totalRecordCallback(void* context, int columns, char** values, char** names);

// A cycle for callers that run several statements on `handle.db`; closeDB must end it. Returns SQLite's result; unless
// it is 0 there is no connection and nothing to close. `key` is the byte of the transform, 0 stands for kDbKey.
int openDB(const std::string& dbName, TelemetryDb& handle, std::uint8_t key = 0);
void closeDB(TelemetryDb& handle, std::uint8_t key = 0);

}  // namespace zorvalis
