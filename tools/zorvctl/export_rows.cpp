#include "export_rows.h"

#include <algorithm>
#include <cmath>

#include "base/json.h"
#include "output.h"
#include "table_view.h"

namespace zorvalis {

namespace {

constexpr ExportType kText = {"string", "VARCHAR"}, kInteger = {"long", "BIGINT"}, kReal = {"double", "DOUBLE"};

const ExportType& TypeOf(const MetricRow& column) {
    return column.typeWord == "INTEGER" ? kInteger : column.typeWord == "DOUBLE" ? kReal : kText;
}

// The cell as JSON of the column's type; nothing for a value of another type, such as text in a column of integers.
std::string TypedCell(sqlite3_stmt* row, int at, const ExportType& type) {
    const int stored = sqlite3_column_type(row, at);
    if (stored == SQLITE_NULL) {
        return "null";
    }
    if (&type == &kText && stored != SQLITE_BLOB) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, at));
        return JsonText({text, static_cast<std::size_t>(sqlite3_column_bytes(row, at))});
    }
    if (&type == &kInteger && stored == SQLITE_INTEGER) {
        return std::to_string(sqlite3_column_int64(row, at));
    }
    const double number = sqlite3_column_double(row, at);
    return &type == &kReal && stored == SQLITE_FLOAT && std::isfinite(number) ? DumpJson(Json(number)) : "";
}

// A cell that fits nowhere, for the column `other`: a blob in the form of SQL.
Json OtherCell(sqlite3_stmt* row, int at) {
    const std::string typed = TypedCell(row, at, kText);
    if (!typed.empty()) {
        return ParseJson(typed);
    }
    std::string text = "X'";
    const auto* bytes = static_cast<const unsigned char*>(sqlite3_column_blob(row, at));
    for (int i = 0; i < sqlite3_column_bytes(row, at); ++i) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
    }
    return text + "'";
}

// The lines of one table.
std::string TableRows(const RecordFile& file, const std::string& name, CollectionKind kind) {
    const std::vector<std::string>& tables = file.database.TableNames();
    if (std::find(tables.begin(), tables.end(), TableName(kind)) == tables.end()) {
        return "";
    }
    const std::vector<std::string> present = file.database.ColumnNames(TableName(kind));
    const std::vector<ExportColumn> columns = ExportColumns(kind);
    std::vector<int> positions(columns.size(), -1);  // in the file's table, by the data set's column
    std::vector<std::pair<std::string, int>> strangers;
    for (std::size_t i = 0; i < present.size(); ++i) {
        const std::string lower = LowerName(present[i]);
        if (lower == "file" || lower == "device") {
            throw BadDatabase{
                Failure{ReadableText(file.path) + " is a merged database: export the files that it was made of"}};
        }
        const auto found = std::find_if(columns.begin(), columns.end() - 1,
                                        [&](const ExportColumn& column) { return column.name == lower; });
        if (found != columns.end() - 1) {
            positions[static_cast<std::size_t>(found - columns.begin())] = static_cast<int>(i);
        } else {
            strangers.emplace_back(ReadableText(present[i], false), static_cast<int>(i));
        }
    }
    const std::string start = "{\"file\":" + JsonText(name) + ",\"device\":" + JsonText(file.device);
    std::string selected;
    for (const std::string& column : present) {
        selected += (selected.empty() ? "" : ", ") + QuotedName(column);
    }
    std::string text;
    file.database.ForEachRow("SELECT " + selected + " FROM " + QuotedName(TableName(kind)), [&](sqlite3_stmt* row) {
        Json other;
        text += start;
        for (std::size_t i = 2; i + 1 < columns.size(); ++i) {
            std::string cell = positions[i] < 0 ? "null" : TypedCell(row, positions[i], *columns[i].type);
            if (cell.empty()) {
                other[columns[i].name] = OtherCell(row, positions[i]);
                cell = "null";
            }
            text += ",\"" + columns[i].name + "\":" + cell;
        }
        for (const auto& [column, at] : strangers) {
            if (sqlite3_column_type(row, at) != SQLITE_NULL) {
                other[column] = OtherCell(row, at);
            }
        }
        text += ",\"other\":" + (other.is_null() ? "null" : JsonText(DumpJson(other))) + "}\n";
    });
    return text;
}

}  // namespace

std::vector<ExportColumn> ExportColumns(CollectionKind kind) {
    std::vector<ExportColumn> columns = {{"file", &kText}, {"device", &kText}};
    for (const MetricRow& column : CatalogueOf(kind)) {
        columns.push_back({column.columnName, &TypeOf(column)});
    }
    columns.push_back({"other", &kText});
    return columns;
}

std::map<std::string, std::string> ExportRows(const RecordFile& file, const std::string& name) {
    std::map<std::string, std::string> texts;
    for (const CollectionKind kind : kExportedKinds) {
        if (std::string text = TableRows(file, name, kind); !text.empty()) {
            texts[TableName(kind)] = std::move(text);
        }
    }
    return texts;
}

std::string MonthOfName(const std::string& name) {
    const std::size_t end = name.find('_', 2);
    const bool ours = end != std::string::npos && end > 2 &&
                      std::string_view("OEW").find(name[0]) != std::string::npos && name[1] == '_' &&
                      name.find_first_not_of("0123456789", end + 1) == end + 7 && name[end + 7] == '_';
    return ours ? name.substr(end + 1, 6) : "";
}

std::string MonthOf(const RecordFile& file, const std::string& name) {
    std::string month = MonthOfName(name);
    for (const CollectionKind kind : kExportedKinds) {
        const std::vector<std::string> columns = file.database.ColumnNames(TableName(kind));
        if (month.empty() && std::find(columns.begin(), columns.end(), "local_time") != columns.end()) {
            file.database.ForEachRow("SELECT substr(local_time, 1, 4) || substr(local_time, 6, 2) FROM " +
                                         QuotedName(TableName(kind)) +
                                         " WHERE local_time GLOB '[0-9][0-9][0-9][0-9]-[0-9][0-9]-*' LIMIT 1",
                                     [&](sqlite3_stmt* row) { month = ReadRow(row)[0].text; });
        }
    }
    if (month.empty()) {
        throw BadDatabase{Failure{ReadableText(file.path) + " tells no month, neither by its name nor by a row"}};
    }
    return month;
}

}  // namespace zorvalis
