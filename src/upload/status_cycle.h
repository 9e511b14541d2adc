// One cycle (open, work, close) on the status database. It ends with its scope, also when an exception passes.
#pragma once

#include <sqlite3.h>

#include <string>

#include "store/telemetry_db.h"

namespace zorvalis {

class StatusCycle {
public:
    explicit StatusCycle(const std::string& dbName) : result_(openDB(dbName, database_)) {
        // Each of an upload's many rows would make and delete a journal, which nothing would ever replay: the next
        // cycle deletes it with the working copy.
        sqlite3_exec(Connection(), "PRAGMA journal_mode = MEMORY", nullptr, nullptr, nullptr);
    }
    ~StatusCycle() {
        try {
            Close();
        } catch (...) {  // out of memory: nothing can be logged either
        }
    }
    StatusCycle(const StatusCycle&) = delete;
    StatusCycle& operator=(const StatusCycle&) = delete;

    int Result() const { return result_; }  // SQLite's result of the open
    bool IsOpen() const { return database_.db != nullptr; }
    sqlite3* Connection() const { return database_.db; }

    // False when SQLite refuses to close the connection; the file has been written back all the same.
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
