// What a year by a setting file comes to: the service's rules, walked pass by pass on a machine that is on all day.
#pragma once

#include <string>
#include <vector>

#include "base/json.h"

namespace zorvalis {

struct YearRow {
    const char* what;
    double month;  // the busiest month
    double year;
};

// A document whose keys have the right types, and numbers where numbers belong. The first row has the days of
// collecting.
std::vector<YearRow> YearBySettings(const Json& tree);

// What is taken for granted, a sentence each.
std::vector<std::string> YearAssumptions();

}  // namespace zorvalis
