#include "collection/data_collector.h"

#include "common/time.h"

namespace zorvalis {
namespace {

void SetColumn(const DataCollector& collector, SampleRow& row, const char* name, std::string value) {
    const std::int32_t index = findColumn(collector, name);
    if (index >= 0) {
        row[index] = std::move(value);
    }
}

}  // namespace

std::int32_t findColumn(const DataCollector& collector, const std::string& name) {
    for (std::int32_t index = 0; index < collector.columnCount; ++index) {
        if (collector.rows[index].columnName == name) {
            return index;
        }
    }
    return -1;
}

void setFreqColumn(const DataCollector& collector, SampleRow& row, std::int32_t triggerType) {
    SetColumn(collector, row, "freq", std::to_string(triggerType));
}

void setLocalTimeColumn(const DataCollector& collector, SampleRow& row, const std::string& timeText) {
    SetColumn(collector, row, "local_time", EpochTextToTimeString(timeText));
}

void setEventTimeColumn(SampleRow& row, std::int32_t triggerType, const std::string& timeText) {
    row[EventColumns()[triggerType]] = EpochTextToTimeString(timeText);
}

}  // namespace zorvalis
