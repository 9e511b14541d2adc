// The four catalogues, one for each kind of sample, and the column that each event's time goes to. They are built
// before main begins; the catalogues never change, so any thread may read them.
#pragma once

#include <cstdint>
#include <map>

#include "collection/metric_row.h"

namespace zorvalis {

enum class CollectionKind { Battery_Power, SysInfo, Thermal, UserBehavior };

// The table's name in the database.
const char* TableName(CollectionKind kind);

const MetricCatalogue& CatalogueOf(CollectionKind kind);

// From job trigger to the column index of UserBehavior. Kept: callers look triggers up with [], which adds an unlisted
// one with column 0; that is `local_time`, which holds the same time already. Callers hold the job lock.
std::map<std::int32_t, std::int32_t>& EventColumns();

}  // namespace zorvalis
