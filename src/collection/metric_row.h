// One column of a telemetry table: its name and SQL type, and how its value is read. The four catalogues of such rows
// are the only schema that sample data has.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zorvalis {

constexpr std::int32_t kNoSource = 3;  // nothing in RetrieveData fills the column
constexpr std::int32_t INDEX_WMI = 0;  // the row is read through DispatchWmi, any other index through DispatchDirect

struct MetricRow {
    std::string columnName;
    std::string typeWord;      // STRING, INTEGER, DOUBLE or DATE; selects the quoting of the value
    std::int32_t resultKind;   // 0 none, 1 narrow text, 2 wide text, 3, 4 unsigned, 7 signed, 8 floating, 9 boolean;
                               // descriptive only
    std::int32_t sourceKind;   // 0 the WMI-shaped reads, 1 the direct reads, 2 the service itself, 3 nothing
    std::string functionName;  // in the hardware function table, or "NA"
    std::int32_t dispatchIndex;
    std::uint8_t wmiFlag;      // last argument of the flag-taking reads; 0 in samples of class W
    std::uint8_t specialFlag;  // 1 selects the serial-number branch; 0 in every row there is
};

using MetricCatalogue = std::vector<MetricRow>;

// One text for each row of a catalogue; the text "NULL" stands for no value.
using SampleRow = std::vector<std::string>;

}  // namespace zorvalis
