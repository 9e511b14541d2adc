#include "store/telemetry_db.h"

#include <sqlite3.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "base/number.h"
#include "common/files.h"
#include "common/log.h"
#include "platform/files.h"
#include "store/db_file.h"
#include "store/sqlite_vfs.h"

namespace zorvalis {
namespace {

// The name of the working copy.
std::string NameOf(const TelemetryDb& handle) {
    return handle.cachedPath.substr(handle.cachedPath.find_last_of('\\') + 1);
}

// The first half of a cycle, up to the connection. The handle keeps the file's lock only when all of it succeeded.
int Open(const std::string& dbName, TelemetryDb& handle, std::uint8_t key) {
    PrepareSqlite();
    if (!IsBareFileName(dbName)) {
        return SQLITE_CANTOPEN;
    }
    handle.path = kDataFolder + dbName;
    platform::FileLock lock = LockDatabaseFile(dbName);
    if (RefusesLink(handle.path)) {
        return SQLITE_CANTOPEN;
    }
    if (!decryptDBFast(handle, key)) {
        return SQLITE_IOERR;
    }
    validateDB(handle);
    const int result = sqlite3_open(platform::native_path(handle.cachedPath).c_str(), &handle.db);
    if (result != SQLITE_OK) {
        sqlite3_close(handle.db);
        handle.db = nullptr;
    } else {
        OpenWorkingCopies().insert(NameOf(handle));
        handle.lock = std::move(lock);
    }
    return result;
}

// The second half. Kept: the file is written back even when SQLite refuses to close the connection.
int Close(TelemetryDb& handle, std::uint8_t key) {
    const int result = sqlite3_close(handle.db);
    if (result == SQLITE_OK) {
        handle.db = nullptr;
    }
    OpenWorkingCopies().extract(NameOf(handle));  // one entry only: a leaked connection keeps its own
    encryptDBFast(handle, key);
    handle.lock = {};
    return result;
}

// One cycle with the default key. When an exception passes, the destructor ends it properly.
class Cycle {
public:
    explicit Cycle(const std::string& dbName) : opened_(Open(dbName, handle_, kDbKey) == SQLITE_OK) {}
    ~Cycle() {
        if (opened_) {
            try {
                End();
            } catch (...) {  // out of memory: nothing can be logged either
            }
        }
    }
    Cycle(const Cycle&) = delete;
    Cycle& operator=(const Cycle&) = delete;

    bool IsOpen() const { return opened_; }
    sqlite3* Connection() const { return handle_.db; }

    int End() {
        opened_ = false;
        return Close(handle_, kDbKey);
    }

    // Kept: leaves the connection open for the life of the process and the working copy on disk, so the next cycle
    // starts again from the resting file. The list keeps the connection reachable; the file's lock is released.
    void Abandon() {
        static auto* const connections = new std::vector<sqlite3*>;
        connections->push_back(handle_.db);
        opened_ = false;
    }

private:
    TelemetryDb handle_;
    bool opened_;
};

// Runs a statement. When it fails, `message` is SQLite's text about it.
int Execute(sqlite3* db, const std::string& sql, int (*callback)(void*, int, char**, char**), void* context,
            std::string& message) {
    char* text = nullptr;
    const int result = sqlite3_exec(db, sql.c_str(), callback, context, &text);
    const std::unique_ptr<char, void (*)(void*)> owned(text, sqlite3_free);
    if (text != nullptr) {
        message = text;
    }
    return result;
}

void LogInitFailure(const std::string& dbName, const std::string& message, const std::string& sql) {
    LogMessage("[initDB] Error executing " + dbName + ".db statemant " + message);
    LogMessage("[initDB] Error executing " + dbName + ".db sql statemant " + sql);
}

// The value as it stands in an INSERT. Kept: nothing is escaped, and a type word that is not known gives no value.
std::string Value(const MetricRow& row, const std::string& value) {
    const bool number = row.typeWord == "INTEGER" || row.typeWord == "DOUBLE";
    const bool text = row.typeWord == "STRING" || row.typeWord == "DATE";
    if (!number && !text) {
        return "";
    }
    if (value == "NULL" || number) {
        return value;
    }
    return "'" + value + "'";
}

}  // namespace

std::string buildCreateTable(const std::string& tableName, const MetricCatalogue& rows, std::int32_t columnCount) {
    std::string sql = "CREATE TABLE IF NOT EXISTS " + tableName + " (";
    for (std::int32_t index = 0; index < columnCount; ++index) {
        sql += " " + rows[index].columnName + " " + rows[index].typeWord + (index + 1 < columnCount ? "," : "");
    }
    return sql + ");";
}

std::string buildInsert(const std::string& tableName, const MetricCatalogue& rows, const SampleRow& values,
                        std::int32_t columnCount) {
    std::string columns;
    std::string data;
    for (std::int32_t index = 0; index < columnCount; ++index) {
        const char* const separator = index + 1 < columnCount ? "," : "";
        columns += " " + rows[index].columnName + separator;
        data += " " + Value(rows[index], values[index]) + separator;
    }
    return "INSERT INTO " + tableName + " (" + columns + ") VALUES(" + data + ");";
}

int totalRecordCallback(void* context, int columns, char** values, char** names) {
    auto& total = *static_cast<RecordCount*>(context);
    try {
        for (int column = 0; column < columns; ++column) {
            const std::string value = values[column] != nullptr ? values[column] : "ISNULL";
            LogMessage(std::string("[totalRecordCallback] azColName ") + names[column] + " value " + value);
            total.count = ParseInt32(value);
        }
    } catch (...) {
        total.error = std::current_exception();
        return 1;
    }
    return 0;
}

void initDB(const std::string& dbName, const std::string& sql) {
    CreateSqliteDBFolder();
    Cycle cycle(dbName);
    if (!cycle.IsOpen()) {
        ReportServiceEvent(L" [SQ][init] Error Init ", kWarning);
        LogMessage("[initDB] Error Opening " + dbName + " datbase");
        return;
    }
    LogMessage("[initDB] Opened " + dbName + ".db");
    std::string message;
    if (Execute(cycle.Connection(), sql, nullptr, nullptr, message) != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][init] Error executing ", kWarning);
        LogInitFailure(dbName, sqlite3_errmsg(cycle.Connection()), sql);
        cycle.Abandon();
        return;
    }
    if (cycle.End() != SQLITE_OK) {
        LogInitFailure(dbName, sqlite3_errmsg(cycle.Connection()), sql);
        return;
    }
    LogMessage("Created " + dbName + ".db Success!!");
    LogMessage("Close DB success!!");
}

void insert(const std::string& dbName, const std::string& sql) {
    Cycle cycle(dbName);
    if (!cycle.IsOpen()) {  // Kept: the lines say "Bat" for all four kinds of samples
        LogMessage("insertBatDB Error Opening " + dbName + ".db datbase");
        return;
    }
    LogMessage("insertBatDB Opened " + dbName + ".db");
    LogMessage("Inserting a value into " + dbName + " db ...");
    LogMessage("Inserting sql: " + sql);
    std::string message;
    if (Execute(cycle.Connection(), sql, nullptr, nullptr, message) != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][insert] Error executing statemant on", kWarning);
        LogMessage("Error executing insert statemant on  " + dbName + ".db " + message);
    } else {
        LogMessage("Insert " + dbName + ".db Success!!");
    }
    cycle.End();
    LogMessage("insert Close " + dbName + " DB success!!");
}

std::int32_t totalRecord(const std::string& dbName, const std::string& tableName) {
    RecordCount total;
    Cycle cycle(dbName);
    if (!cycle.IsOpen()) {
        LogMessage("totalRecord Error Opening " + dbName + ".db datbase");
        return total.count;
    }
    LogMessage("totalRecord Opened " + dbName + ".db");
    std::string message;
    const int result =
        Execute(cycle.Connection(), "SELECT COUNT(*) FROM " + tableName, totalRecordCallback, &total, message);
    if (total.error != nullptr) {
        std::rethrow_exception(total.error);
    }
    if (result != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][totalRec] Error executing statemant", kWarning);
        LogMessage("Error executing totalRecord statemant on  " + dbName + ".db " + message);
    } else {
        LogMessage("totalRecord " + std::to_string(std::abs(total.count)) + " get from " + dbName + ".db Success!!");
    }
    cycle.End();
    LogMessage("totalRecord Close " + dbName + " DB success!!");
    return total.count;
}

int openDB(const std::string& dbName, TelemetryDb& handle, std::uint8_t key) {
    CreateSqliteDBFolder();
    LogMessage("[openDB] createDB path: " + dbName);
    LogMessage("[openDB] sqlite3_open_decrypt start ");
    const int result = Open(dbName, handle, key != 0 ? key : kDbKey);
    if (result != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][open] Error Opening ", kWarning);
        LogMessage("[openDB] createDB: Error Opening SQLite3 datbase");
    } else {
        LogMessage("[openDB] createDB: Opened " + dbName);
    }
    return result;
}

void closeDB(TelemetryDb& handle, std::uint8_t key) {
    if (Close(handle, key != 0 ? key : kDbKey) == SQLITE_OK) {
        LogMessage("closeDB: closed " + handle.path);
    } else {
        ReportServiceEvent(L" [SQ][close] Error closed ", kWarning);
        LogMessage("closeDB: Error closed SQLite3 datbase");
    }
}

}  // namespace zorvalis
