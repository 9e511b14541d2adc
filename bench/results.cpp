#include "results.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <utility>

#include "measure.h"

namespace fs = std::filesystem;

namespace {

// In bytes; a figure's cell is written to the right, the first one of a row to the left.
void PrintCells(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const int width = static_cast<int>(i < widths.size() ? widths[i] : 0);
        std::printf("%s%*s", i == 0 ? "" : "  ", i == 0 ? -width : width, cells[i].c_str());
    }
    std::printf("\n");
    std::fflush(stdout);
}

}  // namespace

Results::Results(std::string name, const std::string& title, const std::vector<std::string>& columns)
    : name_(std::move(name)), json_({{"title", title}, {"columns", columns}}) {
    for (const char* member : {"rows", "texts", "aims", "plots"}) {
        json_[member] = zorvalis::Json::array();
    }
    for (const std::string& column : columns) {
        widths_.push_back(std::max(column.size(), widths_.empty() ? std::size_t{30} : std::size_t{8}));
    }
    std::printf("\n%s\n", title.c_str());
    PrintCells(columns, widths_);
}

Results::~Results() {
    const fs::path folder = BuildFolder() / "bench" / "results";
    fs::create_directories(folder);
    std::ofstream(folder / (name_ + ".json")) << json_.dump(1) << "\n";
}

void Results::Row(const std::vector<std::string>& cells) {
    json_["rows"].push_back(cells);
    PrintCells(cells, widths_);
}

void Results::Text(const std::string& sentence) {
    json_["texts"].push_back(sentence);
    std::printf("%s\n", sentence.c_str());
}

void Results::Aim(const std::string& what, double value, double most, bool atLeast) {
    const bool held = atLeast ? value >= most : value <= most;
    json_["aims"].push_back({{"what", what}, {"value", value}, {"limit", most}, {"atLeast", atLeast}, {"held", held}});
    std::printf("%s: %s, wanted %s %s: %s\n", what.c_str(), Digits(value, 2).c_str(), atLeast ? "at least" : "at most",
                Digits(most, 2).c_str(), held ? "held" : "MISSED");
}

void Results::Plot(const std::string& title, const std::string& x, const std::string& y) {
    json_["plots"].push_back({{"title", title}, {"x", x}, {"y", y}, {"curves", zorvalis::Json::object()}});
}

void Results::Point(const std::string& curve, double x, double y) {
    json_["plots"].back()["curves"][curve].push_back({x, y});
}

std::string Digits(double value, int digits) {
    char text[400];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}
