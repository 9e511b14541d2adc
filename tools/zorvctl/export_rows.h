// The rows of one record file in the form of the data set that `zorvctl export` writes: lines of JSON by table, each
// with all columns of the catalogue. docs/export.md describes them.
#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "collection/metric_catalogue.h"
#include "records.h"

namespace zorvalis {

constexpr std::array kExportedKinds = {CollectionKind::Battery_Power, CollectionKind::SysInfo, CollectionKind::Thermal,
                                       CollectionKind::UserBehavior};

// A column's type in the words of Spark's schema files and of DuckDB.
struct ExportType {
    const char *spark, *duckdb;
};

struct ExportColumn {
    std::string name;
    const ExportType* type;
};

// The columns of a table of the data set: those of the catalogue between two of its own and `other`.
std::vector<ExportColumn> ExportColumns(CollectionKind kind);

// The lines of each table that has rows. `name` is the file's name for them. Throws BadDatabase for a merged database.
std::map<std::string, std::string> ExportRows(const RecordFile& file, const std::string& name);

// "202611" of "O_<device>_202611_V1-0.db"; empty for another name.
std::string MonthOfName(const std::string& name);

// The month of the file's name, or of the first row that has a time. Throws BadDatabase when there is neither.
std::string MonthOf(const RecordFile& file, const std::string& name);

}  // namespace zorvalis
