#include "records.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <unordered_set>

#include "common/files.h"
#include "platform/files.h"

namespace zorvalis {

namespace {

// Whether a file that a folder holds is taken. A pipe of such a name would let the tool wait for ever.
bool IsRecordFile(const std::string& name, const std::string& path) {
    const std::string native = platform::native_path(path);
    std::error_code unknown;
    return LowerName(name).ends_with(".db") &&
           std::filesystem::is_regular_file(std::u8string(native.begin(), native.end()), unknown);
}

// Appends the files of a folder and of the folders in it, in the order of their names.
void List(const std::string& folder, RecordFiles& found) {
    std::vector<platform::FolderEntry> entries;
    if (platform::list_folder(folder, entries) != 0) {
        Complain(ReadableText(folder) + " cannot be listed: check who may read it");
        ++found.bad;
    }
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    const std::string start = folder.ends_with('/') || folder.ends_with('\\') ? folder : folder + "/";
    for (const platform::FolderEntry& entry : entries) {
        const std::string path = start + entry.name;
        if (!entry.folder) {
            if (IsRecordFile(entry.name, path)) {
                found.paths.push_back(path);
            }
        } else if (!platform::is_link(path)) {  // a link could lead around in a circle
            List(path, found);
        }
    }
}

bool IsHex(const std::string& text) {
    return text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// A UUID of 32 digits gets its dashes.
std::string DeviceText(const std::string& text) {
    std::string device = LowerName(text);
    if (device.size() == 32 && IsHex(device)) {
        for (const std::size_t at : {8, 13, 18, 23}) {
            device.insert(at, "-");
        }
        return device;
    }
    return text.size() == 36 ? device : text;
}

// The device part of "O_<device>_<month>_V1-0.db", empty for another name.
std::string DeviceOfName(const std::string& path) {
    const std::string name = path.substr(path.find_last_of("/\\") + 1);
    const std::size_t end = name.find('_', 2);
    const bool ours = name.size() > 2 && std::string("OEW").find(name[0]) != std::string::npos && name[1] == '_' &&
                      end != std::string::npos && end > 2 && name.size() > end + 7 && name[end + 7] == '_';
    return ours ? name.substr(2, end - 2) : "";
}

// A declared type as it may stand in a statement: a file could hide a constraint in its types. The column of an unknown
// type gets none, so that it keeps every value as it is.
std::string TypeWord(const std::string& type) {
    for (const char* const word :
         {"STRING", "INTEGER", "DOUBLE", "DATE", "TEXT", "REAL", "NUMERIC", "BLOB", "INT", "BIGINT"}) {
        if (LowerName(type) == LowerName(word)) {
            return word;
        }
    }
    return "";
}

std::string DeviceOf(const DatabaseReader& database, const std::string& path) {
    std::string device;
    for (const std::string& table : database.TableNames()) {
        for (const std::string& column : database.ColumnNames(table)) {
            if (device.empty() && LowerName(column) == "guid") {
                // Anything else in `guid` is no identifier: an empty text, or one made to look like a path.
                const std::string from =
                    " FROM (SELECT CAST(" + QuotedName(column) + " AS TEXT) AS id FROM " + QuotedName(table) + ")";
                database.ForEachRow("SELECT id" + from +
                                        " WHERE length(id) BETWEEN 8 AND 64 AND id NOT GLOB "
                                        "'*[^0-9A-Za-z-]*' LIMIT 1",
                                    [&](sqlite3_stmt* row) { device = ReadRow(row)[0].text; });
            }
        }
    }
    device = DeviceText(device.empty() ? DeviceOfName(path) : device);
    return device.empty() ? path : device;
}

// Whether a statement in small letters may read columns that it does not name: by a `*`, a NATURAL JOIN, or a table
// behind IN, `(1, 2) IN T`. A multiplication, and those words in a text, are taken for them.
bool MayReadUnnamed(std::string sql) {
    for (std::size_t at = 0; (at = sql.find("count(*)", at)) != std::string::npos;) {
        sql.erase(at, std::strlen("count(*)"));
    }
    const auto isLetter = [&](std::size_t at) {
        return at < sql.size() && (std::isalnum(static_cast<unsigned char>(sql[at])) != 0 || sql[at] == '_');
    };
    for (std::size_t at = 0; (at = sql.find("in", at)) != std::string::npos; at += 2) {
        const std::size_t next = sql.find_first_not_of(" \t\r\n", at + 2);
        if (!isLetter(at - 1) && !isLetter(at + 2) && next != std::string::npos && sql[next] != '(') {
            return true;
        }
    }
    return sql.find('*') != std::string::npos || sql.find("natural") != std::string::npos;
}

}  // namespace

RecordFiles FindRecords(const std::vector<std::string>& arguments) {
    RecordFiles found;
    if (arguments.empty()) {
        CheckMachine();
        const std::string folder = platform::native_path(kDataFolder);
        if (platform::folder_exists(folder)) {
            List(folder, found);
        }
        Require(!found.paths.empty(), "there is no database file in " + folder + ": nothing has been collected yet");
        return found;
    }
    for (const std::string& argument : arguments) {
        if (platform::folder_exists(argument)) {
            List(argument, found);
        } else {
            found.paths.push_back(argument);
        }
    }
    std::unordered_set<std::string> seen;
    std::erase_if(found.paths, [&](const std::string& path) { return !seen.insert(path).second; });
    Require(!found.paths.empty(), "there is no file that ends in .db in " + ReadableText(arguments.front()) +
                                      (arguments.size() > 1 ? " and the other folders" : ""));
    return found;
}

std::size_t VisitRecords(const std::vector<std::string>& paths, const std::function<void(const RecordFile&)>& visit) {
    std::size_t bad = 0;
    for (const std::string& path : paths) {
        try {
            const DatabaseReader database(path);
            visit({path, DeviceOf(database, path), database});
        } catch (const BadDatabase& failure) {
            Complain(failure.text);
            ++bad;
        }
    }
    return bad;
}

void ForEachRecord(const RecordFile& file, const std::string& table, const std::vector<std::string>& columns,
                   const std::function<void(const Row&)>& visit) {
    for (const std::string& name : file.database.TableNames()) {
        if (LowerName(name) != LowerName(table)) {
            continue;
        }
        std::set<std::string> present;
        for (const std::string& column : file.database.ColumnNames(name)) {
            present.insert(LowerName(column));
        }
        std::string selected;
        Row added;  // what a column has that the table lacks
        for (const std::string& column : columns) {
            const bool there = present.contains(LowerName(column));
            selected += (there ? QuotedName(column) : "NULL") + ", ";
            const std::string value = there ? "" : column == "file" ? file.path : column == "device" ? file.device : "";
            added.push_back({value.empty() ? SQLITE_NULL : SQLITE_TEXT, value});
        }
        file.database.ForEachRow("SELECT " + selected + "NULL FROM " + QuotedName(name), [&](sqlite3_stmt* statement) {
            Row row = ReadRow(statement);
            row.pop_back();
            for (std::size_t i = 0; i < row.size(); ++i) {
                row[i] = added[i].type == SQLITE_NULL ? row[i] : added[i];
            }
            visit(row);
        });
    }
}

RecordDatabase::RecordDatabase(const std::string& path, const std::string& statement)
    : statement_(LowerName(statement)), everyColumn_(statement.empty() || MayReadUnnamed(statement_)) {
    sqlite3* connection = nullptr;
    const int result = OpenForOneThread(path == ":memory:" ? path : platform::native_path(path), connection);
    connection_.reset(connection);
    // A file that is not written to its end is thrown away, so that it needs no journal on disk.
    Require(result == SQLITE_OK && sqlite3_exec(connection, "PRAGMA journal_mode = MEMORY; PRAGMA synchronous = OFF",
                                                nullptr, nullptr, nullptr) == SQLITE_OK,
            path + " cannot be written: check that its folder exists and who may write there");
}

void RecordDatabase::Fail(const RecordFile& file) const {
    const int result = sqlite3_errcode(connection_.get());
    const std::string message = sqlite3_errmsg(connection_.get());
    if (result == SQLITE_FULL || result == SQLITE_IOERR || result == SQLITE_NOMEM || result == SQLITE_CANTOPEN) {
        throw Failure{"the merged database cannot be written: " + message};
    }
    throw BadDatabase{Failure{ReadableText(file.path) + " cannot be merged: " + ReadableText(message)}};
}

RecordDatabase::Statement RecordDatabase::Prepare(const RecordFile& file, const std::string& sql) const {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(connection_.get(), sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK) {
        Fail(file);
    }
    return {prepared, sqlite3_finalize};
}

void RecordDatabase::Step(const RecordFile& file, sqlite3_stmt* statement) const {
    if (sqlite3_step(statement) != SQLITE_DONE || sqlite3_reset(statement) != SQLITE_OK) {
        Fail(file);
    }
}

void RecordDatabase::Run(const RecordFile& file, const std::string& sql) const {
    Step(file, Prepare(file, sql).get());
}

std::set<std::string>& RecordDatabase::LowerColumns(const RecordFile& file, const std::string& table) {
    const auto [known, isNew] = columns_.try_emplace(LowerName(table));
    if (isNew) {
        const Statement present = Prepare(file, "PRAGMA table_info(" + QuotedName(table) + ")");
        while (sqlite3_step(present.get()) == SQLITE_ROW) {
            known->second.insert(LowerName(ReadRow(present.get())[1].text));
        }
    }
    return known->second;
}

// A name with a quote in it can be written in several ways, so it counts as named.
bool RecordDatabase::IsNamed(const std::string& lowerName) const {
    return statement_.empty() || statement_.find(lowerName) != std::string::npos ||
           lowerName.find_first_of("\"`]'") != std::string::npos;
}

bool RecordDatabase::IsRead(const std::string& lowerColumn) const {
    return everyColumn_ || IsNamed(lowerColumn);
}

void RecordDatabase::Add(const RecordFile& file) {
    Run(file, "BEGIN");
    try {
        for (const std::string& table : file.database.TableNames()) {
            AddTable(file, table);
        }
        Run(file, "COMMIT");
    } catch (...) {
        sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        columns_.clear();
        throw;
    }
}

void RecordDatabase::AddTable(const RecordFile& file, const std::string& table) {
    const std::string name = QuotedName(table), add = "ALTER TABLE " + name + " ADD COLUMN ";
    std::set<std::string>& known = LowerColumns(file, table);
    const bool isNew = known.empty();
    std::string created = "file TEXT, device TEXT", inserted, selected, marks;
    std::set<std::string> own;
    const auto insertInto = [&](const std::string& column) {
        inserted += (inserted.empty() ? "" : ", ") + column;
        marks += marks.empty() ? "?" : ", ?";
    };
    int taken = 0;
    for (const Column& column : file.database.Columns(table)) {
        const std::string quoted = QuotedName(column.name), lower = LowerName(column.name);
        own.insert(lower);
        if (isNew && lower != "file" && lower != "device") {
            created += ", " + quoted + " " + TypeWord(column.type);
        } else if (!isNew && !known.contains(lower)) {
            Run(file, add + quoted + " " + TypeWord(column.type));
        }
        if (lower == "device" || IsRead(lower)) {
            insertInto(quoted);
            selected += quoted + ", ";
            ++taken;
        }
    }
    if (isNew) {
        Run(file, "CREATE TABLE " + name + " (" + created + ")");
        known = {"file", "device"};
    }
    known.insert(own.begin(), own.end());
    if (!IsNamed(LowerName(table))) {
        return;
    }
    std::vector<const std::string*> added;
    if (!own.contains("file") && IsRead("file")) {
        insertInto("file");
        added.push_back(&file.path);
    }
    if (!own.contains("device")) {  // in any case, so that no row is without a value to insert
        insertInto("device");
        added.push_back(&file.device);
    }
    const Statement insert = Prepare(file, "INSERT INTO " + name + " (" + inserted + ") VALUES (" + marks + ")");
    for (int at = taken; const std::string* value : added) {
        sqlite3_bind_text(insert.get(), ++at, value->c_str(), static_cast<int>(value->size()), SQLITE_STATIC);
    }
    file.database.ForEachRow("SELECT " + selected + "NULL FROM " + QuotedName(table), [&](sqlite3_stmt* row) {
        for (int column = 0; column < taken; ++column) {
            sqlite3_bind_value(insert.get(), column + 1, sqlite3_column_value(row, column));
        }
        Step(file, insert.get());
    });
}

}  // namespace zorvalis
