#include "store/sqlite_vfs.h"

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string_view>

#include "platform/clock.h"

namespace zorvalis {
namespace {

constexpr std::int64_t kJulianMillisecondsOf1970 = 210866760000000;  // SQLite counts from noon, 24 November 4714 BC
constexpr double kMillisecondsOfDay = 86400000.0;

sqlite3_vfs* system = nullptr;  // SQLite's own access to files, which the functions below fall back to

int CurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* time) {
    *time = kJulianMillisecondsOf1970 + platform::now_microseconds() / 1000;
    return SQLITE_OK;
}

int CurrentTime(sqlite3_vfs* vfs, double* time) {
    sqlite3_int64 milliseconds = 0;
    CurrentTimeInt64(vfs, &milliseconds);
    *time = static_cast<double>(milliseconds) / kMillisecondsOfDay;
    return SQLITE_OK;
}

// A copy of the table of file operations in which flushing does nothing. SQLite has a few such tables, one for each
// kind of file; a ninth would be used as it is.
const sqlite3_io_methods* WithoutFlush(const sqlite3_io_methods* methods) {
    struct Pair {
        const sqlite3_io_methods* original = nullptr;
        sqlite3_io_methods copy = {};
    };
    static std::mutex mutex;
    static std::array<Pair, 8> pairs;
    const std::lock_guard guard(mutex);
    for (Pair& pair : pairs) {
        if (pair.original == nullptr) {
            pair = {methods, *methods};
            pair.copy.xSync = [](sqlite3_file*, int) { return SQLITE_OK; };
        }
        if (pair.original == methods) {
            return &pair.copy;
        }
    }
    return methods;
}

// Refuses super-journals and write-ahead logs. The product makes neither, so such a file was planted. A null `pMethods`
// tells SQLite that nothing was opened.
int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* opened) {
    if ((flags & (SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_WAL)) != 0) {
        file->pMethods = nullptr;
        return SQLITE_CANTOPEN;
    }
    const int result = system->xOpen(vfs, name, file, flags, opened);
    if (file->pMethods != nullptr) {
        file->pMethods = WithoutFlush(file->pMethods);
    }
    return result;
}

bool IsJournal(std::string_view name) {
    return name.ends_with("-journal");
}

// A journal can name a super-journal, any file at all; SQLite replays it only if that file exists, and then deletes the
// file. So no file but a journal exists for SQLite.
int Access(sqlite3_vfs* vfs, const char* name, int flags, int* result) {
    *result = 0;
    return flags != SQLITE_ACCESS_EXISTS || IsJournal(name) ? system->xAccess(vfs, name, flags, result) : SQLITE_OK;
}

// On Linux SQLite would resolve links here and then open what they lead to. Unresolved, a link in the database's place
// reaches SQLite's open, which refuses it.
int FullPath(sqlite3_vfs* vfs, const char* name, int size, char* path) {
    return name[0] == '/' && std::snprintf(path, size, "%s", name) < size
               ? SQLITE_OK
               : system->xFullPathname(vfs, name, size, path);
}

// Only journals: see Access.
int Delete(sqlite3_vfs* vfs, const char* name, int sync) {
    return IsJournal(name) ? system->xDelete(vfs, name, sync) : SQLITE_IOERR_DELETE;
}

// Bytes; far more than any sample needs. What a server's longer text would add to a file stays there for good.
constexpr int kLongestStatement = 1 << 20;

constexpr int kLongestValue = 4 << 20;  // bytes, of a text or a whole row

// SQLite calls it for every new connection of the process. No statement reaches a second file, be it by ATTACH or by
// VACUUM INTO, which attaches too. Views and triggers in a planted file do not run; they could run for ever.
int Limit(sqlite3* database, const char**, const sqlite3_api_routines*) {
    sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(database, SQLITE_LIMIT_SQL_LENGTH, kLongestStatement);
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, kLongestValue);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    return SQLITE_OK;
}

bool Register() {
    // Not the one without locks: on Linux only this one notices that a process which has waited too long for the file's
    // lock has put its own copy in the place of this connection's. Its journal would be replayed into that copy.
    system = sqlite3_vfs_find(nullptr);
    static sqlite3_vfs vfs = *system;  // static: SQLite keeps a pointer to it
    vfs.zName = "machine";
    vfs.pNext = nullptr;
    vfs.xOpen = Open;
    vfs.xAccess = Access;
    vfs.xDelete = Delete;
    vfs.xFullPathname = FullPath;
    vfs.xCurrentTime = CurrentTime;
    vfs.xCurrentTimeInt64 = CurrentTimeInt64;
    return sqlite3_vfs_register(&vfs, 1) == SQLITE_OK &&
           sqlite3_auto_extension(reinterpret_cast<void (*)()>(Limit)) == SQLITE_OK;
}

}  // namespace

void PrepareSqlite() {
    [[maybe_unused]] static const bool registered = sqlite3_initialize() == SQLITE_OK && Register();
}

}  // namespace zorvalis
