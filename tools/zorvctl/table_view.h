// The texts in which a table is printed: for a person, as CSV, as JSON. Pure functions of the table.
#pragma once

#include <string>

#include "database_reader.h"

namespace zorvalis {

struct ViewOptions {
    int width = 120;        // of a line, in terminal columns
    bool dimNulls = false;  // print NULL dim, by an escape sequence
    bool everyRow = false;  // in blocks, when rows stand side by side and only the last few fit
};

// The options for where the output goes.
ViewOptions TerminalView(bool everyRow);

// Aligned, one line for each row. A table too wide for that gets one line for each column, with the rows side by side.
std::string ViewTable(const Table& table, const ViewOptions& options);

// A line of column names, then one line for each row. NULL is an empty field, an empty text a pair of quotes.
std::string TableAsCsv(const Table& table);

// An array of objects, one line for each row, with members in column order.
std::string TableAsJson(const Table& table);
// A text as a JSON string; bytes that are not UTF-8 are escaped first.
std::string JsonText(const std::string& bytes);

}  // namespace zorvalis
