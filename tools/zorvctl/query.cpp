// `zorvctl query`: one SELECT over the records of many files, as one database in memory.
#include <CLI/CLI.hpp>
#include <map>
#include <memory>

#include "columns.h"
#include "commands.h"
#include "host.h"
#include "records.h"
#include "table_view.h"

namespace zorvalis {

namespace {

struct QueryOptions {
    std::string sql;
    std::vector<std::string> files;
    bool csv = false, json = false;
};

// Allows reading and nothing else: no statement can make, attach or change a file.
int AllowReading(void*, int action, const char*, const char*, const char*, const char*) {
    const bool reads =
        action == SQLITE_SELECT || action == SQLITE_READ || action == SQLITE_FUNCTION || action == SQLITE_RECURSIVE;
    return reads ? SQLITE_OK : SQLITE_DENY;
}

std::string TableList(sqlite3* connection) {
    std::string names;
    sqlite3_exec(
        connection, "SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY name",
        [](void* list, int, char** values, char**) {
            *static_cast<std::string*>(list) += " " + ReadableText(values[0]);
            return 0;
        },
        &names, nullptr);
    return names;
}

[[noreturn]] void Refuse(sqlite3* connection, const std::string& words) {
    std::string text = "the statement cannot be run: " + ReadableText(words);
    if (words.starts_with("no such table")) {
        text += "; there are:" + TableList(connection);
    } else if (words.starts_with("no such column")) {
        text += "; `zorvctl columns` lists them, and a text stands in single quotes";
    } else if (sqlite3_errcode(connection) == SQLITE_AUTH) {
        text += ": records are only read, so give a SELECT";
    }
    throw Failure{text, kWrongUsage};
}

}  // namespace

Table RunQuery(sqlite3* connection, const std::string& sql) {
    sqlite3_set_authorizer(connection, AllowReading, nullptr);
    sqlite3_stmt* prepared = nullptr;
    const char* rest = nullptr;
    if (sqlite3_prepare_v2(connection, sql.c_str(), -1, &prepared, &rest) != SQLITE_OK) {
        Refuse(connection, sqlite3_errmsg(connection));
    }
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
    Require(prepared != nullptr, "there is no statement: give a SELECT in quotes", kWrongUsage);
    sqlite3_stmt* second = nullptr;
    const bool one = sqlite3_prepare_v2(connection, rest, -1, &second, nullptr) == SQLITE_OK && second == nullptr;
    sqlite3_finalize(second);
    Require(one, "only one statement can be run at a time", kWrongUsage);

    Table table{"result", {}, {}, 0};
    std::map<std::string, int> seen;  // two columns of one name would be one member in JSON
    for (int column = 0; column < sqlite3_column_count(prepared); ++column) {
        const std::string name = sqlite3_column_name(prepared, column);
        const int before = seen[name]++;
        table.columns.push_back(before == 0 ? name : name + ":" + std::to_string(before));
    }
    int result = SQLITE_OK;
    while ((result = sqlite3_step(prepared)) == SQLITE_ROW) {
        table.rows.push_back(ReadRow(prepared));
    }
    if (result != SQLITE_DONE) {
        Refuse(connection, sqlite3_errmsg(connection));
    }
    table.allRows = table.rows.size();
    return table;
}

namespace {

void Query(const QueryOptions& options) {
    const RecordFiles files = FindRecords(options.files);
    RecordDatabase records(":memory:", options.sql);
    const std::size_t bad = VisitRecords(files.paths, [&](const RecordFile& file) { records.Add(file); });
    Require(bad < files.paths.size(), "none of the files could be read");
    Table table = RunQuery(records.Connection(), options.sql);
    if (options.json) {
        Print(TableAsJson(table) + "\n");
    } else if (options.csv) {
        Print(TableAsCsv(table));
    } else {
        NameTriggers(table);
        Print(ViewTable(table, TerminalView(true)));
    }
    Require(bad + files.bad == 0, "");
}

}  // namespace

void AddQueryCommand(CLI::App& app) {
    const auto options = std::make_shared<QueryOptions>();
    CLI::App* query = app.add_subcommand("query", "Asks the records of many files as one SQLite database");
    query->add_option("SQL", options->sql, "A SELECT; each table has the columns file and device too")->required();
    query->add_option("FILE", options->files, "Record files and folders; without any, those of the machine");
    CLI::Option* csv = query->add_flag("--csv", options->csv, "As comma-separated values; NULL is nothing");
    query->add_flag("--json", options->json, "As JSON: an array of objects")->excludes(csv);
    query->callback([options] { Query(*options); });
}

}  // namespace zorvalis
