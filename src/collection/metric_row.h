// One column of a telemetry table: its name and SQL type, and how its value is read. The four catalogues of such rows
// are the only schema that sample data has.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zorvalis {

constexpr std::int32_t kNoSource = 3;  // sourceKind: RetrieveData leaves the column at "NULL"
constexpr std::int32_t INDEX_WMI = 0;  // dispatchIndex: read by DispatchWmi; any other index by DispatchDirect

struct MetricRow {
    std::string columnName;
    std::string typeWord;      // STRING, INTEGER, DOUBLE or DATE; selects the quoting of the value
    std::int32_t resultKind;   // 0 none, 1 narrow text, 2 wide text, 3, 4 unsigned, 7 signed, 8 floating, 9 boolean;
                               // for `zorvctl columns` only, collecting does not look at it
    std::int32_t sourceKind;   // 0 the reads with a flag, 1 the direct reads, 2 the service itself, 3 kNoSource; only
                               // the last is looked at
    std::string functionName;  // a name of kChain in dispatch.cpp, or "NA"
    std::int32_t dispatchIndex;
    std::uint8_t wmiFlag;      // handed to the reads with a flag; a collector sets it to 0 for samples of class W
    std::uint8_t specialFlag;  // Kept: 1 would read the serial number, but it is 0 in every row
};

using MetricCatalogue = std::vector<MetricRow>;

// The values of one sample, in the order of its catalogue. The text "NULL" stands for no value.
using SampleRow = std::vector<std::string>;

}  // namespace zorvalis
