// `zorvctl show`: prints what record files hold, or writes them as one plain SQLite file. Never changes them.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <set>

#include "columns.h"
#include "commands.h"
#include "platform/files.h"
#include "records.h"
#include "table_view.h"

namespace zorvalis {

namespace {

using Names = std::vector<std::string>;

struct ShowOptions {
    Names files, tables, columns;
    std::size_t last = 0;
    std::string since;
    bool csv = false, json = false;
    std::string sqlite;
};

// The names of `wanted` that are present, in any case, in the order of `wanted` and as they are written in `present`;
// all that are present when `wanted` is empty.
Names Chosen(const Names& present, const Names& wanted) {
    Names chosen;
    for (const std::string& name : wanted) {
        const auto same = [&](const std::string& other) { return LowerName(other) == LowerName(name); };
        std::copy_if(present.begin(), present.end(), std::back_inserter(chosen), same);
    }
    return wanted.empty() ? present : chosen;
}

// Reads what was asked for from one file after the other and remembers which names there were.
class Reading {
public:
    explicit Reading(const ShowOptions& options) : options_(options) {}

    std::vector<Table> Read(const DatabaseReader& file) {
        std::vector<Table> tables;
        const Names present = file.TableNames();
        Know(present, {});
        for (const std::string& name : Chosen(present, options_.tables)) {
            const Names all = file.ColumnNames(name);
            Know({}, all);
            const Names chosen = Chosen(all, options_.columns);
            if (!chosen.empty()) {
                tables.push_back(file.Read(name, chosen, options_.last, options_.since));
            }
        }
        return tables;
    }

    // A name may be missing in some files, but not in all. Returns a complaint for each that is.
    Names Missing() const {
        Names complaints = MissingOf("table", options_.tables, tables_);
        const Names columns = MissingOf("column", options_.columns, columns_);
        complaints.insert(complaints.end(), columns.begin(), columns.end());
        return complaints;
    }

    void Know(const Names& tables, const Names& columns) {
        tables_.insert(tables.begin(), tables.end());
        columns_.insert(columns.begin(), columns.end());
    }

private:
    static Names MissingOf(const std::string& what, const Names& wanted, const std::set<std::string>& known) {
        Names complaints;
        for (const std::string& name : wanted) {
            if (!known.empty() && Chosen({known.begin(), known.end()}, {name}).empty()) {
                std::string& complaint = complaints.emplace_back("no " + what + " is called ");
                complaint += ReadableText(name) + "; there are:";
                for (const std::string& each : known) {
                    complaint += " " + ReadableText(each);
                }
            }
        }
        return complaints;
    }

    const ShowOptions& options_;
    std::set<std::string> tables_, columns_;
};

void PrintForPeople(const std::vector<std::string>& paths, Reading& reading, std::size_t& bad, bool everyRow) {
    const ViewOptions view = TerminalView(everyRow);
    const char* gap = "";
    bad += VisitRecords(paths, [&](const RecordFile& file) {
        std::string text = gap + ReadableText(file.path) + " (" + std::to_string(file.database.Plain().size()) +
                           (file.database.WasResting() ? " bytes)\n" : " bytes, a plain SQLite file)\n");
        for (Table& table : reading.Read(file.database)) {
            NameTriggers(table);
            text += "\n" + ViewTable(table, view);
        }
        Print(text);
        gap = "\n";
    });
}

void PrintJson(const std::vector<std::string>& paths, Reading& reading, std::size_t& bad) {
    Print("[");
    const char* comma = "\n";
    bad += VisitRecords(paths, [&](const RecordFile& file) {
        std::string text = std::string(comma) + "{\"file\": " + JsonText(file.path) + ", \"tables\": {";
        const std::vector<Table> tables = reading.Read(file.database);
        for (const Table& table : tables) {
            text += (&table == &tables.front() ? "\n  " : ",\n  ") + JsonText(table.name) + ": " + TableAsJson(table);
        }
        Print(text + "}}");
        comma = ",\n";
    });
    Print("\n]\n");
}

// The one name of them all; a comma-separated file has only one header.
std::string OnlyTable(const Names& names) {
    std::string list;
    for (const std::string& name : names) {
        list += (list.empty() ? " " : ", ") + ReadableText(name);
    }
    Require(names.size() == 1,
            names.empty() ? "there is no table to print"
                          : "--csv prints one table: choose it with --table NAME. There are:" + list,
            kWrongUsage);
    return names.front();
}

// The rows of one table of several files, with the columns file and device in front. The newest ones by their time.
Table ReadMerged(sqlite3* records, const ShowOptions& options, Reading& reading) {
    Names tables;
    for (const Row& row : RunQuery(records, "SELECT name FROM sqlite_schema WHERE type = 'table'").rows) {
        tables.push_back(row[0].text);
    }
    reading.Know(tables, {});
    const std::string from = " FROM " + QuotedName(OnlyTable(Chosen(tables, options.tables)));
    const Names columns = RunQuery(records, "SELECT *" + from + " LIMIT 0").columns;
    reading.Know({}, columns);
    const std::string time = Chosen(columns, {"local_time"}).empty() ? "NULL" : "CAST(local_time AS TEXT)";
    std::string list;
    for (const std::string& column : Chosen(columns, options.columns)) {
        list += (list.empty() ? "" : ", ") + QuotedName(column);
    }
    Require(!list.empty(), reading.Missing().empty() ? "there is no column to print" : reading.Missing()[0],
            kWrongUsage);
    const std::string where = options.since.empty() ? "" : " WHERE " + time + " >= '" + options.since + "'";
    const std::string newest = options.last == 0 ? where
                                                 : " WHERE rowid IN (SELECT rowid" + from + where + " ORDER BY " +
                                                       time + " DESC, rowid DESC LIMIT " +
                                                       std::to_string(options.last) + ") ORDER BY " + time + ", rowid";
    return RunQuery(records, "SELECT " + list + from + newest);
}

void PrintCsv(const std::vector<std::string>& paths, const ShowOptions& options, Reading& reading, std::size_t& bad) {
    RecordDatabase records;
    std::vector<Table> tables;  // of a file that is alone
    bad += VisitRecords(paths, [&](const RecordFile& file) {
        if (paths.size() > 1) {
            return records.Add(file);
        }
        tables = reading.Read(file.database);
        Names names;
        std::transform(tables.begin(), tables.end(), std::back_inserter(names), [](const Table& t) { return t.name; });
        if (reading.Missing().empty()) {
            OnlyTable(names);
        }
    });
    if (bad < paths.size() && paths.size() > 1) {
        tables.push_back(ReadMerged(records.Connection(), options, reading));
    }
    for (const Table& table : tables) {
        Print(TableAsCsv(table));
    }
}

void WriteSqlite(const std::vector<std::string>& paths, const ShowOptions& options, std::size_t& bad) {
    const std::string& out = options.sqlite;
    Require(!platform::path_exists(out), out + " is there already and is not overwritten: give another name",
            kWrongUsage);
    if (paths.size() == 1) {
        bad += VisitRecords(paths, [&](const RecordFile& file) { WriteWholeFile(out, file.database.Plain()); });
        return;
    }
    std::size_t unread = 0;
    try {
        RecordDatabase records(out);
        unread = VisitRecords(paths, [&](const RecordFile& file) { records.Add(file); });
        Require(unread < paths.size(), "none of the files could be read");
    } catch (...) {
        platform::remove_file(out);
        throw;
    }
    bad += unread;
}

void Show(const ShowOptions& options) {
    RecordFiles files = FindRecords(options.files);
    Reading reading(options);
    if (!options.sqlite.empty()) {
        WriteSqlite(files.paths, options, files.bad);
    } else if (options.json) {
        PrintJson(files.paths, reading, files.bad);
    } else if (options.csv) {
        PrintCsv(files.paths, options, reading, files.bad);
    } else {
        PrintForPeople(files.paths, reading, files.bad, options.last > 0);
    }
    const Names missing = reading.Missing();
    for (const std::string& complaint : missing) {
        Complain(complaint);
    }
    Require(files.bad == 0 && missing.empty(), "", missing.empty() ? 1 : kWrongUsage);
}

// A validator: a day, or a day and a time, as `local_time` is written.
std::string DayOrTime(std::string& text) {
    constexpr std::string_view kForm = "0000-00-00 00:00:00";
    std::replace(text.begin(), text.end(), 'T', ' ');
    std::string form = text;
    std::replace_if(
        form.begin(), form.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
    const bool whole = form == kForm || form == kForm.substr(0, 16) || form == kForm.substr(0, 10);
    return whole ? "" : text + " is no time: give it as 2026-11-12 or \"2026-11-12 09:08\"";
}

}  // namespace

void AddShowCommand(CLI::App& app) {
    const auto options = std::make_shared<ShowOptions>();
    CLI::App* show = app.add_subcommand("show", "Prints what record files hold, newest rows last; changes nothing");
    show->add_option("FILE", options->files,
                     "Record files, resting or plain, and folders; without any, those of the machine");
    const auto names = [&](const char* option, Names& list, const char* what) {
        return show->add_option(option, list, what)->delimiter(',')->allow_extra_args(false)->type_name("NAME,...");
    };
    CLI::Option* tables = names("--table", options->tables, "Only these tables, in any case");
    CLI::Option* columns = names("--columns", options->columns, "Only these columns, in this order, in any case");
    CLI::Option* last = show->add_option("--last", options->last, "Only the newest N rows of each table");
    last->check(FromOne)->type_name("N");
    CLI::Option* since = show->add_option("--since", options->since, "Only rows from this local time on");
    since->transform(CLI::Validator(DayOrTime, ""))->type_name("TIME");
    CLI::Option* csv =
        show->add_flag("--csv", options->csv,
                       "One table as comma-separated values, NULL is nothing; of several files, with file and device");
    CLI::Option* json = show->add_flag("--json", options->json, "As JSON: files, their tables, their rows");
    json->excludes(csv);
    CLI::Option* sqlite =
        show->add_option("--sqlite", options->sqlite, "Writes one plain SQLite file instead; several files are merged");
    sqlite->type_name("OUT");
    for (CLI::Option* other : {tables, columns, last, since, csv, json}) {
        sqlite->excludes(other);
    }
    show->callback([options] { Show(*options); });
}

}  // namespace zorvalis
