// One sample on its way into a database file: what brought it, where it goes, and its private copy of a catalogue.
// Owned by its collector for the length of one sample, under the job lock.
#pragma once

#include <cstdint>
#include <string>

#include "collection/metric_catalogue.h"
#include "collection/metric_row.h"
#include "collection/triggers.h"

namespace zorvalis {

struct DataCollector {
    explicit DataCollector(CollectionKind kind)
        : tableName(TableName(kind)),
          columnCount(static_cast<std::int32_t>(CatalogueOf(kind).size())),
          rows(CatalogueOf(kind)) {}

    std::int32_t triggerType = 0;
    std::string dbName;  // the class letter, then the whole file name
    const char* tableName;
    std::int32_t columnCount;
    DbClass dbClass = DbClass::periodic;
    MetricCatalogue rows;
};

// The index of a column, or -1.
std::int32_t findColumn(const DataCollector& collector, const std::string& name);

// Each sets one element of the row: `freq` to the trigger's number, `local_time` and the trigger's own event column to
// the local form of `timeText`, decimal seconds since 1970.
void setFreqColumn(const DataCollector& collector, SampleRow& row, std::int32_t triggerType);
void setLocalTimeColumn(const DataCollector& collector, SampleRow& row, const std::string& timeText);
void setEventTimeColumn(SampleRow& row, std::int32_t triggerType, const std::string& timeText);

}  // namespace zorvalis
