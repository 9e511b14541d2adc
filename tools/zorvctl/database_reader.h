// Reads a database file, resting or plain, in memory: the file is read once, and nothing is ever written beside it.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace zorvalis {

struct Cell {
    int type = SQLITE_NULL;  // SQLite's word for it
    std::string text;        // as it is stored; empty for NULL
};
using Row = std::vector<Cell>;

struct Table {
    std::string name;
    std::vector<std::string> columns;
    std::vector<Row> rows;    // in the order in which they came into the file
    std::size_t allRows = 0;  // in the file, those that were not asked for included
};

class DatabaseReader {
public:
    // Raises a Failure, in words, for a file that is missing, empty, damaged or no database.
    explicit DatabaseReader(const std::string& path);

    std::vector<std::string> TableNames() const;
    std::vector<std::string> ColumnNames(const std::string& table) const;

    // The newest `last` rows, or all for 0.
    Table Read(const std::string& table, const std::vector<std::string>& columns, std::size_t last) const;

    // The plain SQLite file.
    const std::string& Plain() const { return plain_; }
    bool WasResting() const { return resting_; }

private:
    std::vector<Row> Query(const std::string& sql) const;
    std::vector<std::string> Texts(const std::string& sql) const;

    std::string path_;
    std::string plain_;
    std::string image_;  // what the connection works on, for as long as it lives
    bool resting_ = false;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection_{nullptr, sqlite3_close};
};

}  // namespace zorvalis
