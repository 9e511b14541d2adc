// One open cycle on a database file, owned by whoever runs it.
#pragma once

#include <string>

#include "platform/file_lock.h"

struct sqlite3;

namespace zorvalis {

struct TelemetryDb {
    sqlite3* db = nullptr;
    std::string path;              // of the resting file, whose bytes are transformed
    std::string cachedPath;        // of the plain working copy that SQLite has open
    platform::FileLock lock = {};  // keeps other processes off the file until the cycle ends
};

}  // namespace zorvalis
