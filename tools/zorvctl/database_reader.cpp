// A file at rest is transformed back in memory and opened by sqlite3_deserialize.
#include "database_reader.h"

#include <algorithm>
#include <string_view>

#include "platform/files.h"
#include "store/db_file.h"

namespace zorvalis {

namespace {

constexpr std::string_view kHeader("SQLite format 3\0", 16);
constexpr std::size_t kHeaderSize = 100, kWriteVersion = 18, kReadVersion = 19;  // bytes of SQLite's file header

// Refuses what a schema made to attack could do: change the database, call functions with effects.
void Harden(sqlite3* connection, std::size_t longest) {
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    // No value is longer than the file, so an expression in the schema cannot ask for a gigabyte.
    constexpr std::size_t kLeast = 1 << 20, kMost = 1 << 30;
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, static_cast<int>(std::clamp(longest, kLeast, kMost)));
}

}  // namespace

std::string QuotedName(const std::string& name) {
    std::string quoted = "\"";
    for (const char c : name) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
}

std::string LowerName(std::string name) {
    for (char& c : name) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return name;
}

int OpenForOneThread(const std::string& path, sqlite3*& connection) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    return sqlite3_open_v2(path.c_str(), &connection, kFlags, nullptr);
}

DatabaseReader::DatabaseReader(const std::string& path) try
    : path_(path), plain_(ReadWholeFile(path, kLargestDatabase + 1)) {
    Check(!plain_.empty(), " is empty");
    Check(plain_.size() <= kLargestDatabase, " is larger than 1 GiB, which no file of records is");
    if (!plain_.starts_with(kHeader)) {
        resting_ = true;
        for (char& byte : plain_) {
            byte = static_cast<char>(static_cast<unsigned char>(byte) ^ kDbKey);
        }
    }
    Check(plain_.starts_with(kHeader) && plain_.size() >= kHeaderSize,
          " is damaged or no database file: it holds neither a resting database nor a plain one");

    // SQLite opens an image in memory only when its header does not ask for a write-ahead log, a file beside it (2).
    if (plain_[kReadVersion] == 2) {
        image_ = plain_;
        image_[kWriteVersion] = image_[kReadVersion] = 1;
    }
    std::string& image = image_.empty() ? plain_ : image_;
    sqlite3* connection = nullptr;
    int result = OpenForOneThread(":memory:", connection);
    connection_.reset(connection);
    if (result == SQLITE_OK) {
        Harden(connection, image.size() * 2);  // a UTF-16 text can grow
        const auto size = static_cast<sqlite3_int64>(image.size());
        result = sqlite3_deserialize(connection, "main", reinterpret_cast<unsigned char*>(image.data()), size, size,
                                     SQLITE_DESERIALIZE_READONLY);
    }
    Check(result == SQLITE_OK, std::string(" cannot be opened in memory: ") + sqlite3_errstr(result));
    const std::vector<std::string> health = Texts("PRAGMA integrity_check(1)");
    Check(health == std::vector<std::string>{"ok"}, " is damaged: " + (health.empty() ? "" : ReadableText(health[0])));
    // A virtual table has no page of its own; reading it would run the module that the file names.
    tables_ = Texts(
        "SELECT name FROM sqlite_schema WHERE type = 'table' AND rootpage > 0 AND name NOT LIKE 'sqlite!_%' "
        "ESCAPE '!'");
} catch (const BadDatabase&) {
    throw;
} catch (const Failure& failure) {  // of ReadWholeFile
    throw BadDatabase{failure};
}

void DatabaseReader::Check(bool holds, const std::string& otherwise) const {
    if (!holds) {
        throw BadDatabase{Failure{ReadableText(platform::native_path(path_)) + otherwise}};
    }
}

void DatabaseReader::ForEachRow(const std::string& sql, const std::function<void(sqlite3_stmt*)>& visit) const {
    sqlite3_stmt* prepared = nullptr;
    int result = sqlite3_prepare_v2(connection_.get(), sql.c_str(), -1, &prepared, nullptr);
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
    while (prepared != nullptr && (result = sqlite3_step(prepared)) == SQLITE_ROW) {
        visit(prepared);
    }
    Check(result == SQLITE_DONE, " is damaged: " + ReadableText(sqlite3_errmsg(connection_.get())));
}

Row ReadRow(sqlite3_stmt* statement) {
    Row row(static_cast<std::size_t>(sqlite3_column_count(statement)));
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        Cell& cell = row[static_cast<std::size_t>(column)];
        cell.type = sqlite3_column_type(statement, column);
        // As a blob, a text of a UTF-16 database would stay UTF-16.
        const void* const bytes = cell.type == SQLITE_BLOB
                                      ? sqlite3_column_blob(statement, column)
                                      : static_cast<const void*>(sqlite3_column_text(statement, column));
        if (bytes != nullptr) {
            cell.text.assign(static_cast<const char*>(bytes),
                             static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
        }
    }
    return row;
}

std::vector<Row> DatabaseReader::Query(const std::string& sql) const {
    std::vector<Row> rows;
    ForEachRow(sql, [&](sqlite3_stmt* statement) { rows.push_back(ReadRow(statement)); });
    return rows;
}

std::vector<std::string> DatabaseReader::Texts(const std::string& sql) const {
    std::vector<std::string> texts;
    for (const Row& row : Query(sql)) {
        texts.push_back(row[0].text);
    }
    return texts;
}

const std::vector<Column>& DatabaseReader::Columns(const std::string& table) const {
    const auto [known, isNew] = columns_.try_emplace(table);
    if (isNew) {
        // Not the function pragma_table_info: a file can hold a table or view of that name.
        for (const Row& row : Query("PRAGMA table_info(" + QuotedName(table) + ")")) {
            known->second.push_back({row[1].text, row[2].text});
        }
    }
    return known->second;
}

std::vector<std::string> DatabaseReader::ColumnNames(const std::string& table) const {
    std::vector<std::string> names;
    for (const Column& column : Columns(table)) {
        names.push_back(column.name);
    }
    return names;
}

Table DatabaseReader::Read(const std::string& table, const std::vector<std::string>& columns, std::size_t last,
                           const std::string& since) const {
    std::string list, from = " FROM " + QuotedName(table);
    for (const std::string& column : columns) {
        list += (list.empty() ? "" : ", ") + QuotedName(column);
    }
    if (!since.empty()) {
        const std::vector<std::string> all = ColumnNames(table);
        const bool timed = std::any_of(all.begin(), all.end(),
                                       [](const std::string& name) { return LowerName(name) == "local_time"; });
        from += timed ? " WHERE CAST(local_time AS TEXT) >= '" + since + "'" : " WHERE 0";
    }
    const std::size_t all = std::stoull(Texts("SELECT count(*)" + from)[0]);
    const std::size_t skipped = last > 0 && last < all ? all - last : 0;
    // Without ORDER BY, SQLite returns rows in the order in which they were inserted.
    return {table, columns, Query("SELECT " + list + from + " LIMIT -1 OFFSET " + std::to_string(skipped)), all};
}

}  // namespace zorvalis
