#include "store/telemetry_db.h"

#include <sqlite3.h>

#include <cstdlib>
#include <exception>
#include <vector>

#include "common/files.h"
#include "common/log.h"
#include "common/number.h"
#include "platform/files.h"
#include "store/db_file.h"

namespace zorvalis {
namespace {

constexpr std::int32_t kNoCount = 9999;

// The first half of a cycle. A connection that did not open is released at once.
int Open(const std::string& dbName, TelemetryDb& handle, std::uint8_t key) {
    handle.path = kDataFolder + dbName;
    decryptDBFast(handle, key);
    validateDB(handle);
    const int result = sqlite3_open(platform::native_path(handle.cachedPath).c_str(), &handle.db);
    if (result != SQLITE_OK) {
        sqlite3_close(handle.db);
        handle.db = nullptr;
    }
    return result;
}

// The second half; the file goes back to its resting form whatever the close returned.
int Close(TelemetryDb& handle, std::uint8_t key) {
    const int result = sqlite3_close(handle.db);
    if (result == SQLITE_OK) {
        handle.db = nullptr;
    }
    encryptDBFast(handle, key);
    return result;
}

// Runs a statement; `message` is SQLite's for a failed one.
int Execute(sqlite3* db, const std::string& sql, int (*callback)(void*, int, char**, char**), void* context,
            std::string& message) {
    char* text = nullptr;
    const int result = sqlite3_exec(db, sql.c_str(), callback, context, &text);
    if (text != nullptr) {
        message = text;
        sqlite3_free(text);
    }
    return result;
}

// A connection whose schema statement failed is left open for the life of the process.
void LeaveOpen(sqlite3* db) {
    static auto* const connections = new std::vector<sqlite3*>;
    connections->push_back(db);
}

void LogInitFailure(const std::string& dbName, const std::string& message, const std::string& sql) {
    LogMessage("[initDB] Error executing " + dbName + ".db statemant " + message);
    LogMessage("[initDB] Error executing " + dbName + ".db sql statemant " + sql);
}

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

// The count, and the error of a value that was no number: it may not pass through SQLite.
struct RecordCount {
    std::int32_t count = kNoCount;
    std::exception_ptr error;
};

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

void initDB(const std::string& dbName, const std::string& sql) {
    CreateSqliteDBFolder();
    TelemetryDb handle;
    if (Open(dbName, handle, kDbKey) != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][init] Error Init ", kWarning);
        LogMessage("[initDB] Error Opening " + dbName + " datbase");
        return;
    }
    LogMessage("[initDB] Opened " + dbName + ".db");
    std::string message;
    if (Execute(handle.db, sql, nullptr, nullptr, message) != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][init] Error executing ", kWarning);
        LogInitFailure(dbName, sqlite3_errmsg(handle.db), sql);
        LeaveOpen(handle.db);
        return;
    }
    if (Close(handle, kDbKey) != SQLITE_OK) {
        LogInitFailure(dbName, sqlite3_errmsg(handle.db), sql);
        return;
    }
    LogMessage("Created " + dbName + ".db Success!!");
    LogMessage("Close DB success!!");
}

void insert(const std::string& dbName, const std::string& sql) {
    TelemetryDb handle;
    if (Open(dbName, handle, kDbKey) != SQLITE_OK) {
        LogMessage("insertBatDB Error Opening " + dbName + ".db datbase");
        return;
    }
    LogMessage("insertBatDB Opened " + dbName + ".db");
    LogMessage("Inserting a value into " + dbName + " db ...");
    LogMessage("Inserting sql: " + sql);
    std::string message;
    if (Execute(handle.db, sql, nullptr, nullptr, message) != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][insert] Error executing statemant on", kWarning);
        LogMessage("Error executing insert statemant on  " + dbName + ".db " + message);
    } else {
        LogMessage("Insert " + dbName + ".db Success!!");
    }
    Close(handle, kDbKey);
    LogMessage("insert Close " + dbName + " DB success!!");
}

std::int32_t totalRecord(const std::string& dbName, const std::string& tableName) {
    TelemetryDb handle;
    if (Open(dbName, handle, kDbKey) != SQLITE_OK) {
        LogMessage("totalRecord Error Opening " + dbName + ".db datbase");
        return kNoCount;
    }
    LogMessage("totalRecord Opened " + dbName + ".db");
    RecordCount total;
    std::string message;
    const int result = Execute(handle.db, "SELECT COUNT(*) FROM " + tableName, totalRecordCallback, &total, message);
    if (total.error != nullptr) {
        Close(handle, kDbKey);
        std::rethrow_exception(total.error);
    }
    if (result != SQLITE_OK) {
        ReportServiceEvent(L" [SQ][totalRec] Error executing statemant", kWarning);
        LogMessage("Error executing totalRecord statemant on  " + dbName + ".db " + message);
    } else {
        LogMessage("totalRecord " + std::to_string(std::abs(total.count)) + " get from " + dbName + ".db Success!!");
    }
    Close(handle, kDbKey);
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
