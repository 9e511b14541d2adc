// The version of the service, which the setting file, the records and the registry carry.
#pragma once

namespace zorvalis {

inline constexpr char kServiceVersion[] = "2.0.6.0";

}  // namespace zorvalis
