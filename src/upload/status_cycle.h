// One cycle on the status database, which ends with its scope, also for an error that passes through.
#pragma once

#include <sqlite3.h>

#include <string>

#include "store/telemetry_db.h"

namespace zorvalis {

class StatusCycle {
public:
    explicit StatusCycle(const std::string& dbName) : isOpen_(openDB(dbName, database_) == SQLITE_OK) {}
    ~StatusCycle() {
        if (isOpen_) {
            closeDB(database_);
        }
    }
    StatusCycle(const StatusCycle&) = delete;
    StatusCycle& operator=(const StatusCycle&) = delete;

    bool IsOpen() const { return isOpen_; }
    sqlite3* Connection() const { return database_.db; }

private:
    TelemetryDb database_;
    bool isOpen_;
};

}  // namespace zorvalis
