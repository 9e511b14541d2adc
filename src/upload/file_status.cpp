// The table FILESTATUS: registering, listing and deleting files. Sending them is in chunked_upload.cpp.
#include "upload/file_status.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base/number.h"
#include "common/files.h"
#include "common/log.h"
#include "platform/files.h"
#include "store/db_file.h"
#include "upload/chunk_hash.h"
#include "upload/status_cycle.h"

namespace zorvalis {
namespace {

constexpr char kOpenError[] = "OPEN ERROR";
constexpr char kGone[] = "2";  // the status of a row whose file is gone

// Run in place of a statement whose values would change its meaning: SQLite refuses it, so that the caller fails and
// logs as for any bad statement.
const std::string kBroken = "'";

using RowCallback = int (*)(void*, int, char**, char**);

bool Run(sqlite3* database, const std::string& sql, RowCallback callback = nullptr, void* context = nullptr) {
    return sqlite3_exec(database, sql.c_str(), callback, context, nullptr) == SQLITE_OK;
}

// Whether a text may stand between single quotes. Kept: quotes are not escaped, so a server's text with a quote is not
// stored; what it must never do is end its statement and begin another.
bool IsText(std::string_view text) {
    return text.find_first_of(std::string_view("'\0", 2)) == std::string_view::npos;
}

// Whether updateFileStatus takes the value: a decimal integer, or a text that brings its quotes.
bool IsValue(std::string_view value) {
    if (value.size() > 1 && value.starts_with('\'') && value.ends_with('\'')) {
        return IsText(value.substr(1, value.size() - 2));
    }
    const std::string_view digits = value.substr(value.starts_with('-') ? 1 : 0);
    return !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
}

// The rows that a callback collects. No exception may pass through SQLite's C code, so the callback keeps it here and
// stops the select; Rethrow throws it afterwards.
template <class Row>
struct Selection {
    std::vector<Row> rows;
    std::exception_ptr error;

    void Rethrow() const {
        if (error != nullptr) {
            std::rethrow_exception(error);
        }
    }
};

// Kept: SQLite's NULL reads as the text "ISNULL".
std::string ValueOf(char** values, int column) {
    return values[column] != nullptr ? values[column] : "ISNULL";
}

int bgSelectDeleteFileCallback(void* context, int columns, char** values, char** names) {
    auto& selection = *static_cast<Selection<std::string>*>(context);
    try {
        for (int column = 0; column < columns; ++column) {
            LogMessage(std::string("[bgSelectDeleteFileCallback] azColName ") + names[column] + " value " +
                       ValueOf(values, column));
        }
        if (columns > 0) {
            selection.rows.push_back(ValueOf(values, 0));
        }
    } catch (...) {
        selection.error = std::current_exception();
        return 1;
    }
    return 0;
}

// -1 for what the product never writes into a column, such as NULL or more than 32 bits: one planted row must not end
// the run for all files. A size of -1 fails its file; a try count of -1 grants it one more try.
std::int32_t NumberOf(const std::string& value) {
    try {
        return ParseInt32(value);
    } catch (const std::logic_error&) {
        return -1;
    }
}

int bgSelectUploadFileCallback(void* context, int columns, char** values, char** names) {
    auto& selection = *static_cast<Selection<FileRecord>*>(context);
    try {
        FileRecord record;
        for (int column = 0; column < columns; ++column) {
            const std::string value = ValueOf(values, column);
            LogMessage(std::string("[BG_FILESTATUS_CONTROLLER][bgSelectUploadFileCallback] azColName ") +
                       names[column] + " value " + value);
            for (const FileColumnRow& row : kFileColumns) {
                if (row.name != std::string_view(names[column])) {
                    continue;
                }
                if (row.number != nullptr) {
                    record.*row.number = NumberOf(value);
                } else {
                    record.*row.text = value;
                }
            }
        }
        selection.rows.push_back(std::move(record));
    } catch (...) {
        selection.error = std::current_exception();
        return 1;
    }
    return 0;
}

std::string CreateStatement() {
    std::string sql = "CREATE TABLE IF NOT EXISTS FILESTATUS ( ";
    for (const FileColumnRow& column : kFileColumns) {
        sql += std::string(&column != &kFileColumns.front() ? " , " : "") + column.name + " " + column.type +
               (column.primaryKey ? " PRIMARY KEY " : "");
    }
    return sql + " );";
}

std::string CommitStatement(const FileRecord& record) {
    std::string columns;
    std::string values;
    for (const FileColumnRow& column : kFileColumns) {
        if (column.text != nullptr && !IsText(record.*column.text)) {
            return kBroken;
        }
        const bool first = &column == &kFileColumns.front();
        columns += std::string(first ? "" : " , ") + column.name;
        values += (first ? "" : ",") +
                  (column.number != nullptr ? std::to_string(record.*column.number) : "'" + record.*column.text + "'");
    }
    return "INSERT OR REPLACE INTO FILESTATUS ( " + columns + " )" + "VALUES(" + values + ");";
}

}  // namespace

bool IsRecordedName(const std::string& name) {
    std::string lower = name;  // Windows compares file names without case
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return IsBareFileName(name) && lower != "bgfs.db" && lower.find(".cached") == std::string::npos;
}

BG_FILESTATUS_CONTROLLER::BG_FILESTATUS_CONTROLLER(std::string dbName) {
    OpenCycle(dbName);
    if (!cycle_->IsOpen()) {
        LogMessage("[BG_FILESTATUS_CONTROLLER] Error Opening SQLite3 datbase");
    } else if (!Run(cycle_->Connection(), CreateStatement())) {
        LogMessage(std::string("[BG_FILESTATUS_CONTROLLER] BG_FILESTATUS_CONTROLLER(): Error executing SQLite3 "
                               "statemant ") +
                   sqlite3_errmsg(cycle_->Connection()));
    }
}

BG_FILESTATUS_CONTROLLER::~BG_FILESTATUS_CONTROLLER() = default;

bool BG_FILESTATUS_CONTROLLER::fopenDB(const std::string& dbName) {
    if (isOpen_) {
        return true;
    }
    OpenCycle(dbName);
    isOpen_ = cycle_->IsOpen();
    if (!isOpen_) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][fopenDB] fail");
    }
    return isOpen_;
}

bool BG_FILESTATUS_CONTROLLER::fcloseDB() {
    if (!isOpen_) {
        return true;
    }
    isOpen_ = false;
    if (!cycle_->Close()) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][fcloseDB] fail");
        return false;
    }
    return true;
}

void BG_FILESTATUS_CONTROLLER::OpenCycle(const std::string& dbName) {
    cycle_.reset();
    cycle_.emplace(dbName);
    lastResult_ = cycle_->Result();
}

void BG_FILESTATUS_CONTROLLER::EndCycle() {
    fcloseDB();
    cycle_.reset();
}

void BG_FILESTATUS_CONTROLLER::commit() {
    if (!isOpen_) {
        return;
    }
    sqlite3* const database = cycle_->Connection();
    if (Run(database, CommitStatement(record_))) {
        lastResult_ = SQLITE_OK;
        LogMessage("[BG_FILESTATUS_CONTROLLER][commit] success!!");
    } else {
        lastResult_ = sqlite3_errcode(database);
        LogMessage(std::string("[BG_FILESTATUS_CONTROLLER][commit()] Error executing SQLite3 statemant ") +
                   sqlite3_errmsg(database));
    }
}

std::vector<std::string> BG_FILESTATUS_CONTROLLER::getDeletFileNameList(std::int32_t fileType,
                                                                        const std::string& dbName) {
    EndCycle();
    const StatusCycle cycle(dbName);
    if (!cycle.IsOpen()) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][getDeletFileNameList] Error Opening SQLite3 datbase");
        return {kOpenError};
    }
    Selection<std::string> selection;
    const bool selected = Run(cycle.Connection(),
                              "select FILE_NAME from FILESTATUS where FILE_TYPE =" + std::to_string(fileType) +
                                  " and FILE_STATUS !=2 order by FILE_CREATEDATE asc",
                              bgSelectDeleteFileCallback, &selection);
    selection.Rethrow();
    LogMessage(selected ? "[BG_FILESTATUS_CONTROLLER][getDeletFileNameList] Select Success!!"
                        : "[BG_FILESTATUS_CONTROLLER][getDeletFileNameList] Error executing SQLite3 statemant");
    return std::move(selection.rows);
}

std::vector<FileRecord> BG_FILESTATUS_CONTROLLER::getUploadFileList(std::int32_t fileType, std::int32_t ageInDays,
                                                                    const std::string& dbName) {
    EndCycle();
    const StatusCycle cycle(dbName);
    if (!cycle.IsOpen()) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][getUploadFileList] Error Opening SQLite3 datbase");
        return {FileRecord()};
    }
    Selection<FileRecord> selection;
    const bool selected = Run(cycle.Connection(),
                              "select * from FILESTATUS where FILE_TYPE=" + std::to_string(fileType) +
                                  " and FILE_STATUS NOT IN (1,2) and FILE_TRY_COUNT < " + std::to_string(kMostTries) +
                                  "  and FILE_CREATEDATE <= date('now','-" + std::to_string(ageInDays) +
                                  " days')  order by FILE_CREATEDATE asc",
                              bgSelectUploadFileCallback, &selection);
    selection.Rethrow();
    LogMessage(selected ? "[BG_FILESTATUS_CONTROLLER][getUploadFileList] Select Success!!"
                        : "[BG_FILESTATUS_CONTROLLER][getUploadFileList] Error executing SQLite3 statemant");
    return std::move(selection.rows);
}

void BG_FILESTATUS_CONTROLLER::startDelete(std::int32_t fileType, std::int32_t keep, const std::string& dbName) {
    const std::vector<std::string> names = getDeletFileNameList(fileType, dbName);
    const auto count = static_cast<std::int32_t>(names.size());
    if ((count == 1 && names[0] == kOpenError) || count <= keep) {
        return;
    }
    const StatusCycle cycle(dbName);
    if (!cycle.IsOpen()) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][startDelete] Error Opening SQLite3 datbase");
        return;
    }
    for (std::int32_t index = 0; index < count - keep; ++index) {
        const std::string& name = names[index];
        LogMessage("[BG_FILESTATUS_CONTROLLER][startDelete] " + name);
        if (IsRecordedName(name)) {
            const platform::FileLock lock = LockDatabaseFile(name);
            platform::remove_file(kDataFolder + name);
            RemoveLeftovers(name);
        }
        const std::string sql =
            std::string("update FILESTATUS set FILE_STATUS = ") + kGone + " where FILE_NAME = '" + name + "'";
        if (Run(cycle.Connection(), IsText(name) ? sql : kBroken)) {
            LogMessage("[BG_FILESTATUS_CONTROLLER][startDelete] Delete Success!!");
        } else {
            LogMessage(std::string("[BG_FILESTATUS_CONTROLLER][startDelete] Error executing SQLite3 statemant ") +
                       sqlite3_errmsg(cycle.Connection()));
        }
    }
}

void BG_FILESTATUS_CONTROLLER::startDeleteFileRecord(const std::string& dbName) {
    EndCycle();
    const StatusCycle cycle(dbName);
    if (!cycle.IsOpen()) {
        return;
    }
    LogMessage(Run(cycle.Connection(), "DELETE FROM FILESTATUS where FILE_STATUS=2")
                   ? "[BG_FILESTATUS_CONTROLLER][startDeleteFileRecord] Delete File Record Success!!"
                   : "[BG_FILESTATUS_CONTROLLER][startDeleteFileRecord] Error executing SQLite3 statemant");
}

bool updateFileStatus(sqlite3* database, const std::vector<std::string>& columns,
                      const std::vector<std::string>& values, std::int32_t count, const std::string& fileName) {
    LogMessage("[BG_FILESTATUS_CONTROLLER][updateFileStatus] Start");
    LogMessage("[BG_FILESTATUS_CONTROLLER][updateFileStatus] numbers: " + std::to_string(count));
    std::string sql = "update FILESTATUS set ";
    bool sound = IsText(fileName);
    for (std::int32_t index = 0; index < count; ++index) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][updateFileStatus] columns[i]: " + columns[index] +
                   "  values[i]: " + values[index]);
        sql += (index > 0 ? " , " : "") + columns[index] + " = " + values[index];
        sound = sound && IsValue(values[index]);
    }
    sql += " where FILE_NAME = '" + fileName + "'";
    LogMessage("[BG_FILESTATUS_CONTROLLER][updateFileStatus] SQLite3 statemant: " + sql);
    if (!Run(database, sound ? sql : kBroken)) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][updateFileStatus] Error executing SQLite3 statemant");
        return false;
    }
    LogMessage("[BG_FILESTATUS_CONTROLLER][updateFileStatus] Success!!");
    return true;
}

bool updateFileStatus(FileColumn column, sqlite3* database, const std::string& fileName, std::string value) {
    std::vector<std::string> values;
    values.push_back(std::move(value));  // a list in braces would copy it, and a server's text can be megabytes
    return updateFileStatus(database, {kFileColumns[column].name}, values, 1, fileName);
}

}  // namespace zorvalis
