// `zorvctl report`: one page about a machine or about record files. The page's own script draws it (report/); here its
// data are put together. The page may travel, so of files it tells the names and not where they lie.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <set>

#include "base/json.h"
#include "base/text.h"
#include "collection/metric_catalogue.h"
#include "columns.h"
#include "commands.h"
#include "common/version.h"
#include "host.h"
#include "machine_views.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "records.h"
#include "report/page.h"

namespace zorvalis {

namespace {

using Names = std::vector<std::string>;

struct ReportOptions {
    Names files;
    std::string out;
};

struct Records {
    RecordDatabase database;
    std::map<std::string, Json> devices;  // by their name: tables, each with `t` and arrays of values
    std::int64_t withoutTime = 0;         // rows that have no place on a time axis
};

// The local clock's distance from UTC at that time, "UTC+01:00".
std::string ZoneText(std::int64_t seconds) {
    using namespace std::chrono;
    std::tm local{};
    platform::local_time(seconds, local);
    const sys_days day(year(local.tm_year + 1900) / (local.tm_mon + 1) / local.tm_mday);
    const auto offset = (day.time_since_epoch() + hours(local.tm_hour) + minutes(local.tm_min)) / minutes(1) -
                        floor<minutes>(std::chrono::seconds(seconds)).count();
    char text[40];
    std::snprintf(text, sizeof text, "UTC%c%02d:%02d", offset < 0 ? '-' : '+', static_cast<int>(std::abs(offset) / 60),
                  static_cast<int>(std::abs(offset) % 60));
    return text;
}

// Whether the page draws the column. A row of UserBehavior says all by its trigger.
bool IsTaken(CollectionKind kind, const std::string& column) {
    return kind == CollectionKind::UserBehavior ? column == "freq" : column != "local_time" && column != "guid";
}

// Calls `visit` at each row of the result.
template <class Visit>
void ForEachRow(sqlite3* connection, const std::string& sql, Visit visit) {
    sqlite3_stmt* prepared = nullptr;
    int result = sqlite3_prepare_v2(connection, sql.c_str(), -1, &prepared, nullptr);
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
    while (prepared != nullptr && (result = sqlite3_step(prepared)) == SQLITE_ROW) {
        visit(prepared);
    }
    Require(result == SQLITE_DONE, std::string("the records cannot be read: ") + sqlite3_errmsg(connection));
}

Json ValueOf(sqlite3_stmt* row, int column) {
    switch (sqlite3_column_type(row, column)) {
        case SQLITE_INTEGER:
            return sqlite3_column_int64(row, column);
        case SQLITE_FLOAT:
            return sqlite3_column_double(row, column);
        case SQLITE_NULL:
            return nullptr;
        default:
            return ReadableText(reinterpret_cast<const char*>(sqlite3_column_text(row, column)), false);
    }
}

// What a path ends in. A device that is not known goes by its file.
std::string NameOf(const std::string& path) {
    return ReadableText(path.substr(path.find_last_of("/\\") + 1), false);
}

// Adds a table's rows to their devices, by columns and in the order of time.
void ReadTable(Records& records, CollectionKind kind) {
    sqlite3* connection = records.database.Connection();
    const std::string table = TableName(kind);
    std::set<std::string> present;
    ForEachRow(connection, "SELECT lower(name) FROM pragma_table_info('" + table + "')",
               [&](sqlite3_stmt* row) { present.insert(ValueOf(row, 0).get<std::string>()); });
    if (!present.contains("local_time")) {
        return;
    }
    // The clock of the device as if it were UTC; nothing for a text that is no time of a notebook's.
    std::string sql = "SELECT coalesce(CAST(device AS TEXT), ''), CAST(strftime('%s', local_time) AS INTEGER) AS t";
    Names names = {"t"};
    for (const MetricRow& column : CatalogueOf(kind)) {
        if (IsTaken(kind, column.columnName) && present.contains(column.columnName)) {
            const bool number = column.typeWord == "INTEGER" || column.typeWord == "DOUBLE";
            // A machine's texts have 150 characters at most.
            sql += number ? ", CASE WHEN typeof(" + column.columnName + ") IN ('integer', 'real') THEN " +
                                column.columnName + " END"
                          : ", CAST(substr(" + column.columnName + ", 1, 400) AS TEXT)";
            names.push_back(column.columnName);
        }
    }
    sql += " FROM " + table + " ORDER BY 1, t";
    ForEachRow(connection, sql, [&](sqlite3_stmt* row) {
        const std::int64_t time = sqlite3_column_int64(row, 1);
        constexpr std::int64_t kYear2100 = 4102444800;
        if (sqlite3_column_type(row, 1) != SQLITE_INTEGER || time < 0 || time >= kYear2100) {
            ++records.withoutTime;
            return;
        }
        Json& columns = records.devices[ValueOf(row, 0).get<std::string>()][table];
        for (std::size_t i = 0; i < names.size(); ++i) {
            columns[names[i]].push_back(ValueOf(row, static_cast<int>(i) + 1));
        }
    });
}

// What `read` returns; when it cannot be told, a problem in words.
template <class Read>
Json OrProblem(Read read) {
    try {
        return read();
    } catch (const Failure& failure) {
        return {{"problem", ReadableText(failure.text, false)}};
    }
}

// The newest entries of the event log, newest last: time, the level that the service gave it, text. Lines that are none
// are left out; `log` counts them.
Json LogAsJson() {
    const std::string path = StandInMachine("Windows keeps the event log, see its event viewer") + "/eventlog.jsonl";
    const std::vector<std::string> lines = SplitString(platform::file_exists(path) ? ReadWholeFile(path) : "", '\n');
    constexpr std::size_t kMost = 5000;
    Json entries = Json::array();
    for (std::size_t i = lines.size() - std::min(lines.size(), kMost); i < lines.size(); ++i) {
        try {
            const Json entry = ParseJson(lines[i]);
            std::string text;
            for (const Json& each : entry.at("strings")) {
                text += (text.empty() ? "" : "  ") + ReadableText(each.get<std::string>());
            }
            entries.push_back({LocalTimeText(entry.at("time").get<double>()), entry.at("type").get<int>(), text});
        } catch (const std::logic_error&) {
            continue;
        }
    }
    return {{"entries", entries}};
}

void Report(const ReportOptions& options) {
    Require(!platform::path_exists(options.out),
            options.out + " is there already and is not overwritten: give another name", kWrongUsage);
    const bool own = options.files.empty();
    RecordFiles found;
    if (own) {
        CheckMachine();
    }
    try {
        found = FindRecords(options.files);
    } catch (const Failure&) {  // there are none
        if (!own) {
            throw;
        }
    }
    Records records;
    std::map<std::string, Json> states;
    const std::size_t bad = found.bad + VisitRecords(found.paths, [&](const RecordFile& file) {
                                records.database.Add(file);
                                states[file.path] = {NameOf(file.path), NameOf(file.device), "read"};
                            });
    Json files = Json::array();
    for (const std::string& path : found.paths) {
        const auto state = states.find(path);
        files.push_back(state != states.end() ? state->second : Json{NameOf(path), nullptr, "cannot be read"});
    }
    Require(own || !states.empty(), "");
    for (const CollectionKind kind : {CollectionKind::SysInfo, CollectionKind::Thermal, CollectionKind::Battery_Power,
                                      CollectionKind::UserBehavior}) {
        ReadTable(records, kind);
    }
    Json devices = Json::array();
    for (auto& [id, tables] : records.devices) {
        tables["id"] = NameOf(id);
        devices.push_back(std::move(tables));
    }
    const std::int64_t now = platform::now_seconds();
    Json words = ColumnsAsJson();
    Json all = {{"version", kServiceVersion},
                {"made", LocalTimeText(static_cast<double>(now)).substr(0, 16)},
                {"zone", ZoneText(now)},
                {"files", files},
                {"withoutTime", records.withoutTime},
                {"columns", words["columns"]},
                {"triggers", words["triggers"]}};
    all["devices"] = std::move(devices);
    all["settings"] = own ? OrProblem(SettingsAsJson) : Json();
    if (Json& settings = all["settings"];
        settings.is_object() && settings.contains("file") && settings["file"].is_string()) {
        settings["file"] = NameOf(settings["file"].get<std::string>());
    }
    all["uploads"] = own ? OrProblem([] { return UploadsAsJson(true); }) : Json();
    all["log"] = own ? OrProblem(LogAsJson) : Json();

    // A "<" in a text could end the element that the records stand in.
    std::string page = kPageBeforeRecords;
    for (const char c : DumpJson(all)) {
        page += c == '<' ? std::string("\\u003c") : std::string(1, c);
    }
    WriteWholeFile(options.out, page + kPageAfterRecords);
    Require(bad == 0, "");
}

}  // namespace

void AddReportCommand(CLI::App& app) {
    const auto options = std::make_shared<ReportOptions>();
    CLI::App* report =
        app.add_subcommand("report", "Writes a page with charts for a browser, for a person to read or send");
    report->add_option("FILES", options->files,
                       "Database files and folders; without any, this machine's records, settings, uploads and log");
    report->add_option("--out", options->out, "The page, a new file")->required()->type_name("PAGE.html");
    report->callback([options] { Report(*options); });
}

}  // namespace zorvalis
