// `zorvctl export`: writes the records of many files as a data set for query engines. docs/export.md describes its
// form.
//
//   OUT/table=Thermal/month=202611/part-000001.ndjson   rows of up to kBatchFiles files, an object a line
//   OUT/_schema/Thermal.json, OUT/_schema/duckdb.sql    the columns and their types
//   OUT/_export.db                                      which files are in it; also keeps a second export out
//   OUT/_new/                                           parts that are being written
//   OUT/_SUCCESS                                        the latest export came to its end
//
// Engines pass over names that begin with "_". The files of a batch and the names of its parts enter _export.db in one
// transaction, and only then do its parts get their places. So whenever the process is killed, a part in its place is
// whole, and the next export puts the rest there or writes the batch anew.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <memory>

#include "base/json.h"
#include "commands.h"
#include "export_rows.h"
#include "output.h"
#include "platform/digest.h"
#include "platform/files.h"
#include "records.h"

namespace zorvalis {

namespace {

constexpr int kBatchFiles = 1000;
constexpr std::size_t kMostParts = 64;      // that are open at a time, where the files of a batch are of many months
constexpr int kApplicationId = 0x5A455850;  // of _export.db

// Which files the data set holds. One process has it open at a time; SQLite's lock ends with the process.
class Ledger {
public:
    explicit Ledger(const std::string& path) : path_(path) {
        sqlite3* connection = nullptr;
        const int result = sqlite3_open(path.c_str(), &connection);
        connection_.reset(connection);
        Check(result);
    }

    // Every command of a transaction. Further statements of `sql` are not run. Returns the first cell of its first row.
    std::string Run(const std::string& sql, const std::vector<std::string>& values = {},
                    const std::function<void(sqlite3_stmt*)>& visit = nullptr) {
        sqlite3_stmt* prepared = nullptr;
        Check(sqlite3_prepare_v2(connection_.get(), sql.c_str(), -1, &prepared, nullptr));
        const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
        for (std::size_t i = 0; i < values.size(); ++i) {
            sqlite3_bind_text(prepared, static_cast<int>(i) + 1, values[i].data(), static_cast<int>(values[i].size()),
                              SQLITE_STATIC);
        }
        std::string first;
        int result = sqlite3_step(prepared);
        if (result == SQLITE_ROW) {
            first = ReadRow(prepared)[0].text;
        }
        for (; result == SQLITE_ROW; result = sqlite3_step(prepared)) {
            if (visit) {
                visit(prepared);
            }
        }
        Check(result == SQLITE_DONE ? SQLITE_OK : result);
        return first;
    }

private:
    void Check(int result) const {
        Require(result != SQLITE_BUSY, "another export is writing there: wait until it has ended");
        Require(result != SQLITE_NOTADB, path_ + " is damaged or of another program: give a new folder", kWrongUsage);
        Require(result == SQLITE_OK, path_ + " cannot be written: " + sqlite3_errstr(result));
    }

    std::string path_;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection_{nullptr, sqlite3_close};
};

class Export {
public:
    explicit Export(const std::string& out);

    // Adds a file, unless it is there already. False for a bad one, which has been named.
    bool Add(const std::string& path);
    // Ends the batch.
    void Commit();
    void Finish();
    std::size_t Files() const { return files_; }
    std::size_t There() const { return there_; }
    std::size_t Empty() const { return empty_; }

    // Deletes the parts of a batch that is not to be ended, to free the disk.
    void Abandon();

private:
    struct Part {
        std::string place;  // below OUT
        platform::File file;
    };

    void Claim();
    void PlaceParts();
    void RemoveLeftovers();
    void WriteSchema();
    std::string New(const std::string& place) const;
    void AddRows(const RecordFile& file, const std::string& name);
    void Append(const std::string& place, const std::string& text);

    std::string out_;
    std::unique_ptr<Ledger> ledger_;
    std::map<std::string, Part> parts_;  // of this batch, by table and month
    int batch_ = 0, batchFiles_ = 0;
    std::size_t files_ = 0, there_ = 0, empty_ = 0;
};

// A folder of the data set. A link in its place could lead to files that are not the tool's, and it deletes some here.
void MakeFolder(const std::string& path) {
    Require(!platform::is_link(path), ReadableText(path) + " is a link: put a real folder in its place");
    Require(platform::folder_exists(path) || platform::create_folder(path),
            ReadableText(path) + " cannot be made: check that the folder above exists and who may write there");
}

Export::Export(const std::string& out) : out_(out) {
    std::vector<platform::FolderEntry> entries;
    if (platform::folder_exists(out)) {
        Require(platform::list_folder(out, entries) == 0,
                ReadableText(out) + " cannot be listed: check who may read it");
    }
    const bool ours =
        std::any_of(entries.begin(), entries.end(), [](const auto& one) { return one.name == "_export.db"; });
    Require(!platform::file_exists(out) && (entries.empty() || ours),
            ReadableText(out) + " is there and is no export: give a new folder, or one that an export has made",
            kWrongUsage);
    if (!platform::folder_exists(out)) {  // a link to a folder will do: the caller names it
        MakeFolder(out);
    }
    ledger_ = std::make_unique<Ledger>(out + "/_export.db");
    Claim();
    platform::remove_file(out + "/_SUCCESS");
    MakeFolder(out + "/_new");
    MakeFolder(out + "/_schema");
    PlaceParts();
    RemoveLeftovers();
    WriteSchema();
}

// Locks the ledger for as long as the process lives, and makes it when it is new.
void Export::Claim() {
    ledger_->Run("PRAGMA locking_mode = EXCLUSIVE");
    ledger_->Run("BEGIN EXCLUSIVE");
    const std::string id = ledger_->Run("PRAGMA application_id"), version = ledger_->Run("PRAGMA user_version");
    const bool isNew = id == "0" && ledger_->Run("SELECT count(*) FROM sqlite_schema") == "0";
    Require(isNew || id == std::to_string(kApplicationId),
            ReadableText(out_) +
                "/_export.db is of another program: give "
                "a new folder",
            kWrongUsage);
    std::string schema;
    for (const CollectionKind kind : kExportedKinds) {
        for (const ExportColumn& column : ExportColumns(kind)) {
            schema += std::string(TableName(kind)) + "." + column.name + " " + column.type->duckdb + "\n";
        }
    }
    if (isNew) {
        ledger_->Run("PRAGMA application_id = " + std::to_string(kApplicationId));
        ledger_->Run("CREATE TABLE form (columns TEXT)");
        ledger_->Run("INSERT INTO form VALUES (?)", {schema});
        ledger_->Run("CREATE TABLE files (digest TEXT PRIMARY KEY, name TEXT, batch INTEGER) WITHOUT ROWID");
        ledger_->Run("CREATE INDEX names ON files (name)");
        ledger_->Run("CREATE TABLE parts (place TEXT PRIMARY KEY, placed INTEGER)");
    }
    Require(ledger_->Run("SELECT columns FROM form") == schema,
            ReadableText(out_) + " was made by another version, with other columns: give a new folder", kWrongUsage);
    ledger_->Run("COMMIT");
}

std::string Export::New(const std::string& place) const {
    std::string name = place;
    std::replace(name.begin(), name.end(), '/', ',');
    return out_ + "/_new/" + name;
}

// Gives the parts of finished batches their places; those of a batch whose export was killed right behind its commit
// too.
void Export::PlaceParts() {
    std::vector<std::string> places;
    ledger_->Run("SELECT place FROM parts WHERE placed = 0", {},
                 [&](sqlite3_stmt* row) { places.push_back(ReadRow(row)[0].text); });
    for (const std::string& place : places) {
        const std::size_t month = place.find('/'), name = place.rfind('/');
        MakeFolder(out_ + "/" + place.substr(0, month));
        MakeFolder(out_ + "/" + place.substr(0, name));
        const bool there = platform::file_exists(out_ + "/" + place);
        Require(there || platform::rename_file(New(place), out_ + "/" + place),
                ReadableText(out_) + "/" + place + " cannot be put in its place: it was deleted, or cannot be written");
    }
    ledger_->Run("UPDATE parts SET placed = 1 WHERE placed = 0");
}

void Export::Abandon() {
    for (auto& [folder, part] : parts_) {
        part.file.reset();
        platform::remove_file(New(part.place));
    }
}

// What a killed export was writing.
void Export::RemoveLeftovers() {
    std::vector<platform::FolderEntry> entries;
    platform::list_folder(out_ + "/_new", entries);
    for (const platform::FolderEntry& entry : entries) {
        platform::remove_file(out_ + "/_new/" + entry.name);
    }
}

// For Spark a file for each table, for DuckDB a view for each table that has rows.
void Export::WriteSchema() {
    std::string views = "-- Run with OUT as the present folder.\n";
    for (const CollectionKind kind : kExportedKinds) {
        const std::string table = TableName(kind);
        Json fields = Json::array();
        std::string list;
        for (const ExportColumn& column : ExportColumns(kind)) {
            fields.push_back({{"name", column.name},
                              {"type", column.type->spark},
                              {"nullable", true},
                              {"metadata", Json::object()}});
            list += (list.empty() ? "" : ", ") + column.name + ": '" + column.type->duckdb + "'";
        }
        WriteWholeFile(out_ + "/_schema/" + table + ".json", DumpJson({{"type", "struct"}, {"fields", fields}}) + "\n");
        if (ledger_->Run("SELECT count(*) FROM parts WHERE place LIKE 'table=" + table + "/%'") != "0") {
            views +=
                "CREATE OR REPLACE VIEW " + table + " AS SELECT * FROM read_json('table=" + table +
                "/*/*.ndjson', format = 'newline_delimited', hive_partitioning = true,\n    hive_types = {'table': "
                "VARCHAR, 'month': INTEGER}, columns = {" +
                list + "});\n";
        }
    }
    WriteWholeFile(out_ + "/_schema/duckdb.sql", views);
}

bool Export::Add(const std::string& path) {
    const std::string name = path.substr(path.find_last_of("/\\") + 1);
    std::string digest;
    for (const std::uint8_t byte : platform::md5_of_file(path).digest.value_or(std::array<std::uint8_t, 16>{})) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(byte));
        digest += digits;
    }
    if (batchFiles_ == 0) {
        ledger_->Run("BEGIN IMMEDIATE");
        batch_ = std::stoi("0" + ledger_->Run("SELECT max(batch) FROM files")) + 1;
    }
    ++batchFiles_;
    if (!ledger_->Run("SELECT name FROM files WHERE digest = ?", {digest}).empty()) {
        ++there_;
        return true;
    }
    const bool known = !ledger_->Run("SELECT name FROM files WHERE name = ?", {name}).empty();
    if (known && !MonthOfName(name).empty()) {
        Complain(ReadableText(path) +
                 " is there already with other bytes, so that its rows would be there twice: "
                 "export the newer file into a new folder");
        return false;
    }
    const std::size_t bad = VisitRecords({path}, [&](const RecordFile& file) {
        AddRows(file, name);
        ledger_->Run("INSERT INTO files VALUES (?, ?, " + std::to_string(batch_) + ")", {digest, name});
    });
    if (batchFiles_ >= kBatchFiles || parts_.size() >= kMostParts) {
        Commit();
    }
    return bad == 0;
}

// All rows of the file, or none: they enter the parts when the whole file has been read.
void Export::AddRows(const RecordFile& file, const std::string& name) {
    const std::map<std::string, std::string> texts = ExportRows(file, name);
    if (texts.empty()) {
        ++empty_;
        return;
    }
    const std::string month = MonthOf(file, name);
    for (const auto& [table, text] : texts) {
        Append("table=" + table + "/month=" + month, text);
    }
    ++files_;
}

void Export::Append(const std::string& folder, const std::string& text) {
    Part& part = parts_[folder];
    if (part.file == nullptr) {
        char name[40];
        std::snprintf(name, sizeof name, "/part-%06d.ndjson", batch_);
        part.place = folder + name;
        part.file = platform::open_file(New(part.place), "wb");
    }
    Require(part.file != nullptr && std::fwrite(text.data(), 1, text.size(), part.file.get()) == text.size(),
            New(part.place) + " cannot be written: is the disk full?");
}

void Export::Commit() {
    if (batchFiles_ == 0) {
        return;
    }
    for (auto& [folder, part] : parts_) {
        Require(std::fclose(part.file.release()) == 0, New(part.place) + " cannot be written: is the disk full?");
        ledger_->Run("INSERT INTO parts VALUES (?, 0)", {part.place});
    }
    ledger_->Run("COMMIT");
    parts_.clear();
    batchFiles_ = 0;
    PlaceParts();
}

void Export::Finish() {
    Commit();
    WriteSchema();
    WriteWholeFile(out_ + "/_SUCCESS", "");
}

std::string Counted(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

void Run(const std::string& out, const std::vector<std::string>& arguments) {
    RecordFiles found = FindRecords(arguments);
    // By month, so that a batch has few parts. Names of another form come last.
    const auto month = [](const std::string& path) {
        const std::string name = path.substr(path.find_last_of("/\\") + 1);
        const std::size_t device = name.find('_'), at = name.find('_', device + 1);
        return at == std::string::npos ? "~" : name.substr(at + 1, 6);
    };
    std::stable_sort(found.paths.begin(), found.paths.end(),
                     [&](const std::string& a, const std::string& b) { return month(a) < month(b); });
    Export data(out);
    try {
        for (const std::string& path : found.paths) {
            found.bad += data.Add(path) ? 0 : 1;
        }
        data.Finish();
    } catch (...) {
        data.Abandon();
        throw;
    }
    Print("exported " + Counted(data.Files(), "file") + " to " + ReadableText(out) +
          (data.There() > 0 ? "; " + std::to_string(data.There()) + " were there already" : "") +
          (data.Empty() > 0 ? "; " + std::to_string(data.Empty()) + " without records" : "") + "\n");
    Require(found.bad == 0, Counted(found.bad, "bad file") + " passed over, named above");
}

}  // namespace

void AddExportCommand(CLI::App& app) {
    const auto out = std::make_shared<std::string>();
    const auto files = std::make_shared<std::vector<std::string>>();
    CLI::App* command = app.add_subcommand(
        "export",
        "Writes the records of files as a data set for query engines (docs/export.md); goes on where it ended");
    command->add_option("OUT", *out, "The data set's folder: a new one, or one of an earlier export")->required();
    command->add_option("FILES", *files, "Database files, or folders of them; without any, those of the machine");
    command->callback([out, files] { Run(*out, *files); });
}

}  // namespace zorvalis
