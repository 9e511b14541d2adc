#include "store/clock_vfs.h"

#include <sqlite3.h>

#include <cstdint>

#include "platform/clock.h"

namespace zorvalis {
namespace {

constexpr std::int64_t kJulianMillisecondsOf1970 = 210866760000000;
constexpr double kMillisecondsOfDay = 86400000.0;

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

bool Register() {
    static sqlite3_vfs vfs = *sqlite3_vfs_find(nullptr);  // SQLite keeps it
    vfs.zName = "machine-clock";
    vfs.pNext = nullptr;
    vfs.xCurrentTime = CurrentTime;
    vfs.xCurrentTimeInt64 = CurrentTimeInt64;
    return sqlite3_vfs_register(&vfs, 1) == SQLITE_OK;
}

}  // namespace

void UseMachineClockInSqlite() {
    [[maybe_unused]] static const bool registered = sqlite3_initialize() == SQLITE_OK && Register();
}

}  // namespace zorvalis
