// `zorvctl show`: prints what database files hold, or writes one as a plain SQLite file. Never changes them.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <set>

#include "commands.h"
#include "common/files.h"
#include "database_reader.h"
#include "host.h"
#include "output.h"
#include "platform/files.h"
#include "table_view.h"

namespace zorvalis {

namespace {

using Names = std::vector<std::string>;

struct ShowOptions {
    Names files, tables, columns;
    std::size_t last = 0;
    bool csv = false, json = false;
    std::string sqlite;
};

struct ShownFile {
    std::string path, form;
    std::vector<Table> tables;
};

// The names of `wanted` that are present, in the order of `wanted`; all that are present when `wanted` is empty.
Names Chosen(const Names& present, const Names& wanted) {
    Names chosen;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(chosen), [&](const std::string& name) {
        return std::find(present.begin(), present.end(), name) != present.end();
    });
    return wanted.empty() ? present : chosen;
}

// The database files in the machine's data folder, sorted.
Names MachineDatabases() {
    CheckMachine();
    const std::string folder = platform::native_path(kDataFolder);
    std::vector<platform::FolderEntry> entries;
    platform::list_folder(kDataFolder, entries);
    Names paths;
    for (const platform::FolderEntry& entry : entries) {
        if (!entry.folder && entry.name.ends_with(".db")) {
            paths.push_back(folder + entry.name);
        }
    }
    Require(!paths.empty(), "there is no database file in " + folder + ": nothing has been collected yet");
    std::sort(paths.begin(), paths.end());
    return paths;
}

// Reads what was asked for from every file that can be read; `failures` gets a line for each file that cannot, and for
// each table or column that no file has.
std::vector<ShownFile> ReadFiles(const ShowOptions& options, Names& failures) {
    std::vector<ShownFile> files;
    std::set<std::string> tables, columns;
    for (const std::string& path : options.files) {
        try {
            const DatabaseReader reader(path);
            ShownFile file{path, reader.WasResting() ? "" : ", a plain SQLite file", {}};
            const Names present = reader.TableNames();
            tables.insert(present.begin(), present.end());
            for (const std::string& name : Chosen(present, options.tables)) {
                const Names all = reader.ColumnNames(name);
                columns.insert(all.begin(), all.end());
                const Names chosen = Chosen(all, options.columns);
                if (!chosen.empty()) {
                    file.tables.push_back(reader.Read(name, chosen, options.last));
                }
            }
            file.form = std::to_string(reader.Plain().size()) + " bytes" + file.form;
            files.push_back(std::move(file));
        } catch (const Failure& failure) {
            failures.push_back(failure.text);
        }
    }
    // A name may be missing in some files, but not in all.
    const auto missing = [&](const char* what, const Names& wanted, const std::set<std::string>& known) {
        for (const std::string& name : wanted) {
            if (!files.empty() && !known.contains(name)) {
                std::string& failure = failures.emplace_back("no ");
                failure.append(what).append(" is called ").append(name).append("; there are:");
                for (const std::string& each : known) {
                    failure += " " + ReadableText(each);
                }
            }
        }
    };
    missing("table", options.tables, tables);
    missing("column", options.columns, columns);
    return files;
}

void PrintForPeople(const std::vector<ShownFile>& files, bool everyRow) {
    ViewOptions view;
    view.everyRow = everyRow;
    if (const int terminal = TerminalWidth(); terminal > 0) {
        view.width = terminal;
        view.dimNulls = true;
    }
    for (const ShownFile& file : files) {
        Print((&file == &files.front() ? "" : "\n") + ReadableText(file.path) + " (" + file.form + ")\n");
        for (const Table& table : file.tables) {
            Print("\n" + ViewTable(table, view));
        }
    }
}

// When there are several tables, each is headed by a comment line with file and table.
void PrintCsv(const std::vector<ShownFile>& files) {
    std::vector<std::pair<std::string, std::string>> blocks;
    for (const ShownFile& file : files) {
        for (const Table& table : file.tables) {
            blocks.emplace_back("# " + ReadableText(file.path + " " + table.name) + "\n", TableAsCsv(table));
        }
    }
    for (const auto& block : blocks) {
        Print((&block == &blocks.front() ? "" : "\n") + (blocks.size() > 1 ? block.first : "") + block.second);
    }
}

void PrintJson(const std::vector<ShownFile>& files) {
    Print("[");
    for (const ShownFile& file : files) {
        Print((&file == &files.front() ? "\n{\"file\": " : ",\n{\"file\": ") + JsonText(file.path) + ", \"tables\": {");
        for (const Table& table : file.tables) {
            Print((&table == &file.tables.front() ? "\n  " : ",\n  ") + JsonText(table.name) + ": " +
                  TableAsJson(table));
        }
        Print("}}");
    }
    Print("\n]\n");
}

void WriteSqlite(const ShowOptions& options) {
    Require(options.files.size() == 1, "--sqlite takes exactly one FILE", kWrongUsage);
    Require(!platform::file_exists(options.sqlite) && !platform::folder_exists(options.sqlite),
            options.sqlite + " is there already and is not overwritten: give another name");
    const DatabaseReader reader(options.files.front());
    WriteWholeFile(options.sqlite, reader.Plain());
}

void Show(ShowOptions options) {
    if (!options.sqlite.empty()) {
        return WriteSqlite(options);
    }
    if (options.files.empty()) {
        options.files = MachineDatabases();
    }
    Names failures;
    const std::vector<ShownFile> files = ReadFiles(options, failures);
    if (options.json) {
        PrintJson(files);
    } else if (options.csv) {
        PrintCsv(files);
    } else {
        PrintForPeople(files, options.last > 0);
    }
    for (const std::string& failure : failures) {
        Complain(failure);
    }
    Require(failures.empty(), "");
}

}  // namespace

void AddShowCommand(CLI::App& app) {
    const auto options = std::make_shared<ShowOptions>();
    CLI::App* show = app.add_subcommand("show", "Prints what database files hold, newest rows last; changes nothing");
    show->add_option("FILE", options->files, "Database files, resting or plain; without any, those of the machine");
    const auto names = [&](const char* option, Names& list, const char* what) {
        return show->add_option(option, list, what)->delimiter(',')->allow_extra_args(false)->type_name("NAME,...");
    };
    CLI::Option* tables = names("--table", options->tables, "Only these tables");
    CLI::Option* columns = names("--columns", options->columns, "Only these columns, in this order");
    CLI::Option* last = show->add_option("--last", options->last, "Only the newest N rows of each table");
    last->check(FromOne)->type_name("N");
    CLI::Option* csv = show->add_flag("--csv", options->csv, "As comma-separated values; NULL is nothing");
    CLI::Option* json = show->add_flag("--json", options->json, "As JSON: files, their tables, their rows");
    json->excludes(csv);
    CLI::Option* sqlite = show->add_option("--sqlite", options->sqlite, "Writes FILE as a plain SQLite file instead");
    sqlite->type_name("OUT");
    for (CLI::Option* other : {tables, columns, last, csv, json}) {
        sqlite->excludes(other);
    }
    show->callback([options] { Show(*options); });
}

}  // namespace zorvalis
