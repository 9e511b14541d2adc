// One open cycle on a database file: the file rests transformed at `path`, and is worked on as `cachedPath`.
#pragma once

#include <string>

#include "platform/file_lock.h"

struct sqlite3;

namespace zorvalis {

struct TelemetryDb {
    sqlite3* db = nullptr;
    std::string path;
    std::string cachedPath;
    platform::FileLock lock = {};  // while the cycle is open
};

}  // namespace zorvalis
