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

DbClass classOfTrigger(std::int32_t triggerType) {
    if (triggerType >= 10 && triggerType <= 22) {
        return DbClass::event;
    }
    if (triggerType == 23 || triggerType == 24) {
        return DbClass::wmi_event;
    }
    return DbClass::periodic;
}

const char* LetterOf(DbClass dbClass) {
    switch (dbClass) {
        case DbClass::event:
            return "E";
        case DbClass::wmi_event:
            return "W";
        case DbClass::periodic:
            break;
    }
    return "O";
}

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
