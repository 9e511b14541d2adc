// The life of a database file: its name, how it rests on disk with every byte transformed, how it is checked and what a
// damaged file costs, and how the upload side hears of a new one. A cycle is one use of a file: decryptDBFast writes a
// plain working copy, validateDB checks it, SQLite works on it, encryptDBFast puts it back.
//
//   registered   setDbPath found no file of that name and wrote the name to the registry
//   growing      initDB made it, insert adds rows
//   recorded     the upload side has taken the name from the registry; rows may still be added
//   gone         deleted by the keep limit, or by validateDB, which empties the folder for one damaged file
//
// Callers hold the job lock, which keeps the threads of this process apart; LockDatabaseFile keeps the service and a
// pass, which is a process of its own, apart.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "common/deployment.h"
#include "platform/file_lock.h"
#include "store/telemetry_handle.h"

namespace zorvalis {

struct DataCollector;

// The byte that every byte of a resting file is exclusive-ored with, unless a caller gives another.
inline constexpr std::uint8_t kDbKey = deployment::DbKey;

// Makes the data folder with all its parents. A failure shows when a file is opened there.
void CreateSqliteDBFolder();

// The lock of one file between processes. A cycle holds it from before it looks at the file until the file rests again.
// Whoever else reads the file takes it too, since encryptDBFast leaves the file missing for a moment. Waits at most
// five seconds and then returns a lock that is not held: its holder must not be able to stop the service.
platform::FileLock LockDatabaseFile(const std::string& dbName);

// Deletes what an interrupted cycle left, sets `cachedPath` and writes the working copy there. Without a readable
// resting file it writes none, and SQLite will make a new database. False ends the cycle: what was left cannot be
// deleted, or the copy is incomplete (a full disk, say) and would be taken for a damaged file, or replace a good one.
bool decryptDBFast(TelemetryDb& handle, std::uint8_t key);

// Makes the working copy the new resting file. If that cannot be written whole, the resting file stays as it was.
void encryptDBFast(TelemetryDb& handle, std::uint8_t key);

// Lets SQLite check the working copy, between decryptDBFast and the open. A file that fails empties the data folder,
// the status database included; only files in use by other cycles are spared.
void validateDB(TelemetryDb& handle);

// The names of working copies that are open in this process, one for each connection. validateDB skips them: Windows
// cannot delete an open file, so Linux must not.
std::multiset<std::string>& OpenWorkingCopies();

// SQLite's row callback in validateDB. `context` is an int, which becomes 1 for "ok" and 0 for any other row.
int integritycheckCallback(void* context, int count, char** values, char** names);

// The middle of a file name, "<device>_<yyyymm>_V1-0". Throws std::out_of_range when the device's UUID is too long. The
// first is a pure function, of a time like "2026-11-12 09:08:07"; the second may give the device its UUID.
std::string AutoDBFileNameOf(const std::string& deviceUuid, const std::string& now);
std::string getAutoDBFileName();

// Makes the class letter in the collector's `dbName` the whole file name, and writes the name of a file that does not
// exist yet to the registry, for the upload side.
void setDbPath(DataCollector& collector);

}  // namespace zorvalis
