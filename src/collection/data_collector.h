// One sample on its way into a database file: why it is taken, where it goes, and its own copy of a catalogue, which
// the collector may change. A collector makes one for each sample.
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
    std::string dbName;  // the class letter; from setDbPath on the whole file name
    const char* tableName;
    std::int32_t columnCount;
    DbClass dbClass = DbClass::periodic;
    MetricCatalogue rows;
};

// The index of a column in the collector's rows, or -1.
std::int32_t findColumn(const DataCollector& collector, const std::string& name);

// Each sets one element of the row: `freq` becomes the trigger's number; `local_time`, and the column that EventColumns
// names for the trigger, become `timeText` (decimal seconds since 1970) as local time. A missing column is passed over.
void setFreqColumn(const DataCollector& collector, SampleRow& row, std::int32_t triggerType);
void setLocalTimeColumn(const DataCollector& collector, SampleRow& row, const std::string& timeText);
void setEventTimeColumn(SampleRow& row, std::int32_t triggerType, const std::string& timeText);

}  // namespace zorvalis
