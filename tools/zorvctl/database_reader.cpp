// A file at rest is transformed back in memory and opened by sqlite3_deserialize.
#include "database_reader.h"

#include <string_view>

#include "output.h"
#include "store/db_file.h"

namespace zorvalis {

namespace {

constexpr std::string_view kHeader("SQLite format 3\0", 16);
constexpr std::size_t kHeaderSize = 100, kWriteVersion = 18, kReadVersion = 19;  // bytes of SQLite's file header

std::string Quoted(const std::string& name, char quote) {
    std::string quoted(1, quote);
    for (const char c : name) {
        quoted.append(c == quote ? 2 : 1, c);
    }
    return quoted + quote;
}

}  // namespace

DatabaseReader::DatabaseReader(const std::string& path) : path_(path), plain_(ReadWholeFile(path)) {
    Require(!plain_.empty(), path + " is empty");
    if (!plain_.starts_with(kHeader)) {
        resting_ = true;
        for (char& byte : plain_) {
            byte = static_cast<char>(static_cast<unsigned char>(byte) ^ kDbKey);
        }
    }
    Require(plain_.starts_with(kHeader) && plain_.size() >= kHeaderSize,
            path + " is damaged or no database file: it holds neither a resting database nor a plain one");

    image_ = plain_;
    // SQLite opens an image in memory only when its header does not ask for a write-ahead log, a file beside it (2).
    if (image_[kReadVersion] == 2) {
        image_[kWriteVersion] = image_[kReadVersion] = 1;
    }
    sqlite3* connection = nullptr;
    int result = sqlite3_open(":memory:", &connection);
    connection_.reset(connection);
    if (result == SQLITE_OK) {
        const auto size = static_cast<sqlite3_int64>(image_.size());
        result = sqlite3_deserialize(connection, "main", reinterpret_cast<unsigned char*>(image_.data()), size, size,
                                     SQLITE_DESERIALIZE_READONLY);
    }
    Require(result == SQLITE_OK, path_ + " cannot be opened in memory: " + sqlite3_errstr(result));
    const std::vector<std::string> health = Texts("PRAGMA integrity_check(1)");
    Require(health == std::vector<std::string>{"ok"}, path_ + " is damaged: " + ReadableText(health[0]));
}

std::vector<Row> DatabaseReader::Query(const std::string& sql) const {
    sqlite3_stmt* prepared = nullptr;
    int result = sqlite3_prepare_v2(connection_.get(), sql.c_str(), -1, &prepared, nullptr);
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
    std::vector<Row> rows;
    while (prepared != nullptr && (result = sqlite3_step(prepared)) == SQLITE_ROW) {
        Row& row = rows.emplace_back(static_cast<std::size_t>(sqlite3_column_count(prepared)));
        for (int column = 0; column < sqlite3_column_count(prepared); ++column) {
            Cell& cell = row[static_cast<std::size_t>(column)];
            cell.type = sqlite3_column_type(prepared, column);
            if (const void* bytes = sqlite3_column_blob(prepared, column)) {
                cell.text.assign(static_cast<const char*>(bytes),
                                 static_cast<std::size_t>(sqlite3_column_bytes(prepared, column)));
            }
        }
    }
    Require(result == SQLITE_DONE, path_ + " is damaged: " + sqlite3_errmsg(connection_.get()));
    return rows;
}

std::vector<std::string> DatabaseReader::Texts(const std::string& sql) const {
    std::vector<std::string> texts;
    for (const Row& row : Query(sql)) {
        texts.push_back(row[0].text);
    }
    return texts;
}

std::vector<std::string> DatabaseReader::TableNames() const {
    return Texts("SELECT name FROM sqlite_schema WHERE type = 'table' AND substr(name, 1, 7) <> 'sqlite_'");
}

std::vector<std::string> DatabaseReader::ColumnNames(const std::string& table) const {
    return Texts("SELECT name FROM pragma_table_info(" + Quoted(table, '\'') + ")");
}

Table DatabaseReader::Read(const std::string& table, const std::vector<std::string>& columns, std::size_t last) const {
    std::string list;
    for (const std::string& column : columns) {
        list += (list.empty() ? "" : ", ") + Quoted(column, '"');
    }
    const std::string from = " FROM " + Quoted(table, '"');
    const std::size_t all = std::stoull(Texts("SELECT count(*)" + from)[0]);
    const std::size_t skipped = last > 0 && last < all ? all - last : 0;
    // Without ORDER BY, SQLite returns rows in the order in which they were inserted.
    return {table, columns, Query("SELECT " + list + from + " LIMIT -1 OFFSET " + std::to_string(skipped)), all};
}

}  // namespace zorvalis
