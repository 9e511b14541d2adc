// The life of a database file: what it is called, how it rests on disk with every byte transformed, how its health is
// tested and what a bad file costs, and how the upload side hears of a new one.
//
//   registered   setDbPath finds no file of that name and tells the registry
//   growing      initDB makes it, insert adds rows
//   recorded     the upload side has taken the registry's text; rows may still be added
//   gone         the keep limit, or validateDB, which empties the folder for one bad file
//
// All of it runs under the job lock, which keeps the threads of this process apart; a lock of the file keeps a pass and
// the service apart.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "common/deployment.h"
#include "platform/file_lock.h"
#include "store/telemetry_handle.h"

namespace zorvalis {

struct DataCollector;

inline constexpr std::uint8_t kDbKey = deployment::DbKey;

// Makes the data folder with all its parents.
void CreateSqliteDBFolder();

// What a cycle holds from before it looks at the file until the file rests again, and whoever else looks at it
// meanwhile, since it is missing between the delete and the rename. Waits five seconds at most and goes on without it
// then, so that nobody who keeps it stops the service.
platform::FileLock LockDatabaseFile(const std::string& dbName);

// Clears what an interrupted cycle left, sets `cachedPath` and writes the working copy there. Without a readable
// resting file there is no working copy, and SQLite will make one. False when what was left does not go away, and when
// the copy is not whole (a full disk, say): it must not be taken for a bad file, nor replace the good one.
bool decryptDBFast(TelemetryDb& handle, std::uint8_t key);

// Makes the working copy the new resting file. Without a complete copy the resting file stays as it was.
void encryptDBFast(TelemetryDb& handle, std::uint8_t key);

// Between decryptDBFast and the open of a cycle. A file that fails the check costs every file of the data folder.
void validateDB(TelemetryDb& handle);

// The working copies that open cycles of this process hold, by name. The system refuses to delete an open file, so a
// cycle that goes on while another file is condemned writes its rows back; where it would not refuse, these are spared.
std::multiset<std::string>& OpenWorkingCopies();

// The row callback of validateDB; `context` is the validity flag, an int.
int integritycheckCallback(void* context, int count, char** values, char** names);

// The middle of a file name: device, month, version.
std::string getAutoDBFileName();

// Completes the collector's `dbName`, which holds the class letter, and registers a file that does not exist yet.
void setDbPath(DataCollector& collector);

}  // namespace zorvalis
