// What a bench has measured, as a table: printed row by row, and kept for the page of costs (docs/cost.md).
#pragma once

#include <string>
#include <vector>

#include "base/json.h"

class Results {
public:
    // `name` is the file's, build/PRESET/bench/results/NAME.json; `title` stands above the table.
    Results(std::string name, const std::string& title, const std::vector<std::string>& columns);
    ~Results();  // writes the file
    Results(const Results&) = delete;
    Results& operator=(const Results&) = delete;

    void Row(const std::vector<std::string>& cells);

    // A sentence below the table: what was done, or what a figure means.
    void Text(const std::string& sentence);

    // What was wanted: `value` is at most `most`, or at least with `atLeast`. Says whether it holds; a bench goes on.
    void Aim(const std::string& what, double value, double most, bool atLeast = false);

    // A plot with its axes, and a point on a curve of the last plot.
    void Plot(const std::string& title, const std::string& x, const std::string& y);
    void Point(const std::string& curve, double x, double y);

private:
    std::string name_;
    std::vector<std::size_t> widths_;
    zorvalis::Json json_;
};

// A number with so many digits behind the point.
std::string Digits(double value, int digits);
