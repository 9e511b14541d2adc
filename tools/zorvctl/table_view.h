// The forms in which rows are printed: for a person, as CSV, as JSON. Pure functions of a table.
#pragma once

#include <string>

#include "database_reader.h"

namespace zorvalis {

struct ViewOptions {
    int width = 120;        // columns that a line may take
    bool dimNulls = false;  // by an escape sequence
    bool everyRow = false;  // also where rows stand side by side and only the last few fit
};

// Aligned, a row a line; a table too wide for that, with a column a line and rows side by side.
std::string ViewTable(const Table& table, const ViewOptions& options);

// A line of column names, then a row a line; NULL is nothing, an empty text is a pair of quotes.
std::string TableAsCsv(const Table& table);

// An array of objects, a row a line, their members in column order.
std::string TableAsJson(const Table& table);
std::string JsonText(const std::string& bytes);

}  // namespace zorvalis
