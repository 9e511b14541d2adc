// One cycle on the status database, which ends with its scope, also for an error that passes through.
#pragma once

#include <sqlite3.h>

#include <string>

#include "store/telemetry_db.h"

namespace zorvalis {

class StatusCycle {
public:
    explicit StatusCycle(const std::string& dbName) : result_(openDB(dbName, database_)) {}
    ~StatusCycle() {
        try {
            Close();
        } catch (...) {  // there is no memory for a log line
        }
    }
    StatusCycle(const StatusCycle&) = delete;
    StatusCycle& operator=(const StatusCycle&) = delete;

    int Result() const { return result_; }  // SQLite's, of the open
    bool IsOpen() const { return database_.db != nullptr; }
    sqlite3* Connection() const { return database_.db; }

    bool Close() {
        if (IsOpen()) {
            closeDB(database_);
        }
        return !IsOpen();
    }

private:
    TelemetryDb database_;
    int result_;
};

}  // namespace zorvalis
