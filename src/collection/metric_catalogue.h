// The four catalogues, one for each kind of sample, and the column that each event's time goes to. Built before the
// service starts. The catalogues are never written to.
#pragma once

#include <cstdint>
#include <map>

#include "collection/metric_row.h"

namespace zorvalis {

enum class CollectionKind { Battery_Power, SysInfo, Thermal, UserBehavior };

// The table's name in the database.
const char* TableName(CollectionKind kind);

const MetricCatalogue& CatalogueOf(CollectionKind kind);

// From job trigger to the column index of UserBehavior. A look-up that inserts maps an unlisted trigger to column 0.
// Used under the job lock.
std::map<std::int32_t, std::int32_t>& EventColumns();

}  // namespace zorvalis
