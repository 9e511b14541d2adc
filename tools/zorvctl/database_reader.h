// Reads a database file, at rest or plain. The file is read once into memory, so that SQLite writes nothing beside it
// and the service is not disturbed. The file may be hostile: nothing that its schema defines (views, triggers, virtual
// tables) is run. One thread.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "output.h"

namespace zorvalis {

// A file that cannot be read as a database; the text names it.
struct BadDatabase : Failure {};

// As a name in SQL. Any bytes but NUL may stand in it.
std::string QuotedName(const std::string& name);

// A..Z made small, as SQLite compares names.
std::string LowerName(std::string name);

struct Column {
    std::string name, type;  // the type as the table declares it; often empty
};

struct Cell {
    int type = SQLITE_NULL;  // SQLITE_INTEGER and the like
    std::string text;        // a number in SQLite's text form, a blob's bytes; empty for NULL
};
using Row = std::vector<Cell>;

// As sqlite3_open, without a lock around each cell that is read.
int OpenForOneThread(const std::string& path, sqlite3*& connection);

// The statement's present row.
Row ReadRow(sqlite3_stmt* statement);

struct Table {
    std::string name;
    std::vector<std::string> columns;
    std::vector<Row> rows;    // those asked for, in the order of their insertion
    std::size_t allRows = 0;  // how many the file has
};

// A larger file is none that the service wrote, and reading it could take all memory.
constexpr std::size_t kLargestDatabase = std::size_t{1} << 30;

class DatabaseReader {
public:
    // Throws BadDatabase for a file that is missing, empty, damaged or not a database; so do all reads.
    explicit DatabaseReader(const std::string& path);

    const std::vector<std::string>& TableNames() const { return tables_; }
    const std::vector<Column>& Columns(const std::string& table) const;  // none of a table that is not there
    std::vector<std::string> ColumnNames(const std::string& table) const;

    // The `last` newest rows, all for 0, of those whose column `local_time` is not before `since`. An empty `since` is
    // all; otherwise a table without that column has no rows.
    Table Read(const std::string& table, const std::vector<std::string>& columns, std::size_t last,
               const std::string& since = "") const;

    // Calls `visit` with the statement at each row of its result, one row in memory at a time.
    void ForEachRow(const std::string& sql, const std::function<void(sqlite3_stmt*)>& visit) const;

    // The file's bytes as a plain SQLite file.
    const std::string& Plain() const { return plain_; }
    // Whether the file was at rest, with every byte transformed.
    bool WasResting() const { return resting_; }

private:
    std::vector<Row> Query(const std::string& sql) const;
    std::vector<std::string> Texts(const std::string& sql) const;
    void Check(bool holds, const std::string& otherwise) const;  // throws BadDatabase

    std::string path_;
    std::string plain_;
    std::string image_;  // the connection's memory where it differs from `plain_`; declared before the connection, so
                         // that it lives longer
    bool resting_ = false;
    std::vector<std::string> tables_;
    mutable std::map<std::string, std::vector<Column>> columns_;  // of tables that were asked for
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection_{nullptr, sqlite3_close};
};

}  // namespace zorvalis
