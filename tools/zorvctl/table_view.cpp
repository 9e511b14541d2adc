// The three forms of a table, and how many columns of a terminal each takes.
#include "table_view.h"

#include <algorithm>
#include <cstdlib>

#include "base/json.h"
#include "base/json_text.h"
#include "host.h"
#include "output.h"

namespace zorvalis {

namespace {

constexpr int kGap = 2;
constexpr int kWidestSample = 29;  // columns of a row that stands beside others, so that three fit 120 columns

// A cell as text: "NULL", X'..' for a blob. `controls` escapes control characters, which only the view for a person
// needs.
std::string CellText(const Cell& cell, bool controls = true) {
    if (cell.type != SQLITE_BLOB) {
        return cell.type == SQLITE_NULL ? "NULL" : ReadableText(cell.text, controls);
    }
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = "X'";
    for (const char byte : cell.text) {
        const auto value = static_cast<unsigned char>(byte);
        text += {kDigits[value >> 4], kDigits[value & 15]};
    }
    return text + "'";
}

// Collects lines of fields, with a gap between the fields and no blanks at the end of a line.
class Lines {
public:
    void Add(const std::string& field) { line_ += (line_.empty() ? "" : std::string(kGap, ' ')) + field; }
    void Add(const Cell& cell, int width, bool rightAligned, const ViewOptions& options) {
        const std::string text = FitTo(CellText(cell), width, rightAligned);
        Add(cell.type == SQLITE_NULL && options.dimNulls ? "\x1b[2m" + text + "\x1b[0m" : text);
    }
    void End() {
        line_.erase(line_.find_last_not_of(' ') + 1);
        text_ += line_ + "\n";
        line_.clear();
    }
    const std::string& Text() const { return text_; }

private:
    std::string text_, line_;
};

std::string Title(const Table& table, std::size_t shown) {
    const std::string count = table.allRows == 0 ? "no" : std::to_string(table.allRows);
    return ReadableText(table.name) + ": " + count + (table.allRows == 1 ? " row" : " rows") +
           (shown < table.allRows ? ", the last " + std::to_string(shown) : "") + "\n";
}

// A line for each row, below the column names. Columns without texts are right-aligned.
std::string ViewRows(const Table& table, const std::vector<int>& widths, const ViewOptions& options) {
    Lines lines;
    std::vector<bool> numbers;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        numbers.push_back(std::none_of(table.rows.begin(), table.rows.end(), [i](const Row& row) {
            return row[i].type == SQLITE_TEXT || row[i].type == SQLITE_BLOB;
        }));
        lines.Add(FitTo(ReadableText(table.columns[i]), widths[i], numbers[i]));
    }
    lines.End();
    for (const int width : widths) {
        lines.Add(std::string(static_cast<std::size_t>(width), '-'));
    }
    lines.End();
    for (const Row& row : table.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            lines.Add(row[i], widths[i], numbers[i], options);
        }
        lines.End();
    }
    return Title(table, table.rows.size()) + lines.Text();
}

// A line for each column, and in it as many rows side by side as fit; without `everyRow` only the last ones that fit.
std::string ViewColumns(const Table& table, const std::vector<int>& widths, const ViewOptions& options) {
    int nameWidth = 0;
    for (const std::string& column : table.columns) {
        nameWidth = std::max(nameWidth, DisplayWidth(ReadableText(column)));
    }
    const int room = std::max(options.width - nameWidth - kGap, 20);
    const int widest = *std::max_element(widths.begin(), widths.end());
    const int sample = std::min({widest, kWidestSample, room});
    const auto together = static_cast<std::size_t>((room + kGap) / (sample + kGap));
    const std::size_t count = table.rows.size();
    const std::size_t shown = options.everyRow ? count : std::min(count, together);

    Lines lines;
    for (std::size_t start = count - shown; start < count; start += together) {
        const std::size_t end = std::min(start + together, count);
        const int width = end - start == 1 ? std::min(widest, room) : sample;
        for (std::size_t column = 0; column < table.columns.size(); ++column) {
            lines.Add(FitTo(ReadableText(table.columns[column]), nameWidth));
            for (std::size_t row = start; row < end; ++row) {
                lines.Add(table.rows[row][column], width, false, options);
            }
            lines.End();
        }
        if (end < count) {
            lines.End();
        }
    }
    return Title(table, shown) + lines.Text();
}

std::string CsvField(const std::string& text) {
    const bool special =
        std::any_of(text.begin(), text.end(), [](char c) { return c == ',' || c == '"' || c == '\r' || c == '\n'; });
    if (!text.empty() && !special && text.front() != ' ' && text.back() != ' ') {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
}

std::string JsonCell(const Cell& cell) {
    switch (cell.type) {
        case SQLITE_NULL:
            return "null";
        case SQLITE_INTEGER:
            return cell.text;
        case SQLITE_FLOAT:
            return DumpJson(Json(std::strtod(cell.text.c_str(), nullptr)));
        default:
            return JsonText(CellText(cell, false));
    }
}

}  // namespace

ViewOptions TerminalView(bool everyRow) {
    ViewOptions view;
    view.everyRow = everyRow;
    if (const int terminal = TerminalWidth(); terminal > 0) {
        view.width = terminal;
        view.dimNulls = MayStyle();
    }
    return view;
}

std::string ViewTable(const Table& table, const ViewOptions& options) {
    if (table.rows.empty()) {
        return Title(table, 0);
    }
    std::vector<int> widths, headed;  // the columns' widths, without and with the name above
    int line = -kGap;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        int width = 0;
        for (const Row& row : table.rows) {
            width = std::max(width, DisplayWidth(CellText(row[i])));
        }
        widths.push_back(width);
        headed.push_back(std::max(width, DisplayWidth(ReadableText(table.columns[i]))));
        line += kGap + headed.back();
    }
    return line <= options.width ? ViewRows(table, headed, options) : ViewColumns(table, widths, options);
}

std::string TableAsCsv(const Table& table) {
    std::string text;
    for (const std::string& column : table.columns) {
        text += (text.empty() ? "" : ",") + CsvField(ReadableText(column, false));
    }
    text += "\n";
    for (const Row& row : table.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            text += i > 0 ? "," : "";
            text += row[i].type == SQLITE_NULL ? "" : CsvField(CellText(row[i], false));
        }
        text += "\n";
    }
    return text;
}

std::string JsonText(const std::string& bytes) {
    return IsPlainJsonText(bytes) ? '"' + bytes + '"' : DumpJson(Json(ReadableText(bytes, false)));
}

std::string TableAsJson(const Table& table) {
    std::vector<std::string> starts;  // of the members
    for (const std::string& column : table.columns) {
        starts.push_back((starts.empty() ? "" : ", ") + JsonText(column) + ": ");
    }
    std::string text = "[";
    for (const Row& row : table.rows) {
        text += text == "[" ? "\n    {" : ",\n    {";
        for (std::size_t i = 0; i < row.size(); ++i) {
            text.append(starts[i]).append(JsonCell(row[i]));
        }
        text += "}";
    }
    return text + "]";
}

}  // namespace zorvalis
