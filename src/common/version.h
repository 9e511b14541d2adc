// The version of the service, as clients, records and the registry show it. A stored setting file rules only when it
// has the same.
#pragma once

namespace zorvalis {

inline constexpr char kServiceVersion[] = "2.0.6.0";

}  // namespace zorvalis
