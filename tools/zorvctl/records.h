// Many record files as one: finds them in folders, hands them over one at a time, or merges them into one database. For
// every command that takes FILES. A bad file is named on the error output and passed over.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "database_reader.h"

namespace zorvalis {

struct RecordFiles {
    std::vector<std::string> paths;
    std::size_t bad = 0;  // folders that could not be listed; each has been named
};

// The files that the arguments name: a file as it is, whether or not it exists, and a folder's files that end in ".db",
// with those of the folders in it (links to folders are not followed), sorted. Each path once. Without arguments, the
// files of the machine. Throws a Failure when there are none.
RecordFiles FindRecords(const std::vector<std::string>& arguments);

struct RecordFile {
    std::string path;
    // What identifies the machine: the records' own `guid`; in a file without one, the device part of the file's name
    // (O_<device>_<month>_V1-0.db); in a file with another name, its path. A UUID has its dashes and small letters,
    // whichever it comes from. Letters, digits and "-" only, unless it is the path. In a file that is itself merged it
    // is the first of them: there each row has a column `device`.
    std::string device;
    const DatabaseReader& database;
};

// Opens the files one after the other; at no time is more than one in memory. A file that cannot be read (BadDatabase,
// also when `visit` throws it) is named on the error output. Returns how many these were. Other exceptions end the run.
std::size_t VisitRecords(const std::vector<std::string>& paths, const std::function<void(const RecordFile&)>& visit);

// Calls `visit` for each row of the file's table of that name, with the values of `columns`; both in any case. A column
// that the table lacks is NULL, or what a merge gives it when it is `file` or `device`. Without the table, no call.
void ForEachRecord(const RecordFile& file, const std::string& table, const std::vector<std::string>& columns,
                   const std::function<void(const Row&)>& visit);

// A database with the rows of all files added to it. Tables of one name become one table with the columns of all, in
// the order in which they came and with the type of the first, after two columns of its own: `file`, the path, and
// `device`. A row has NULL where its file lacks the column. A table that has these two already (of a merged file) keeps
// what stands there.
class RecordDatabase {
public:
    // In memory, or a new file. Throws a Failure. With the text of a statement it answers that statement only: all
    // tables have all their columns, but those that the text does not name have no rows, and such columns have NULL.
    explicit RecordDatabase(const std::string& path = ":memory:", const std::string& statement = "");

    // All tables of the file or, when it throws BadDatabase, none. Throws a Failure when the database is full.
    void Add(const RecordFile& file);

    sqlite3* Connection() const { return connection_.get(); }

private:
    using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

    void AddTable(const RecordFile& file, const std::string& table);
    std::set<std::string>& LowerColumns(const RecordFile& file, const std::string& table);
    bool IsNamed(const std::string& lowerName) const;
    bool IsRead(const std::string& lowerColumn) const;
    Statement Prepare(const RecordFile& file, const std::string& sql) const;
    void Step(const RecordFile& file, sqlite3_stmt* statement) const;
    void Run(const RecordFile& file, const std::string& sql) const;
    [[noreturn]] void Fail(const RecordFile& file) const;

    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection_{nullptr, sqlite3_close};
    std::string statement_;  // in small letters; empty when everything is needed
    bool everyColumn_;
    std::map<std::string, std::set<std::string>> columns_;  // that tables have, all in small letters
};

// The result of one SELECT. Anything else, and an error in it, throws a Failure in words with kWrongUsage.
Table RunQuery(sqlite3* connection, const std::string& sql);

}  // namespace zorvalis
