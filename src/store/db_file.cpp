#include "store/db_file.h"

#include <sqlite3.h>

#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

#include "base/text.h"
#include "collection/data_collector.h"
#include "common/device_identity.h"
#include "common/files.h"
#include "common/log.h"
#include "common/registry.h"
#include "common/time.h"
#include "platform/files.h"

namespace zorvalis {
namespace {

using PathBuffer = std::array<char, 260>;  // the longest path that the product uses

// The path of a file that goes with a database file. Throws when it is too long: cut off, it could be the database
// file's own.
std::string Companion(const std::string& path, const char* ending) {
    PathBuffer buffer{};
    if (std::snprintf(buffer.data(), buffer.size(), "%s%s", path.c_str(), ending) >= static_cast<int>(buffer.size())) {
        throw std::out_of_range("path too long for a database file");
    }
    return buffer.data();
}

std::string NameOf(const std::string& path) {
    return path.substr(path.find_last_of('\\') + 1);
}

// To the resting form and back: an exclusive or with the key undoes itself.
bool CopyTransformed(std::FILE* from, std::FILE* to, std::uint8_t key) {
    constexpr std::int64_t kWhole = std::numeric_limits<std::int64_t>::max();
    return platform::copy_bytes(from, to, kWhole, key);
}

// The files that emptying the folder spares: the working files of this process's open cycles, and those of any database
// but the `condemned` one whose lock another process holds.
std::set<std::string> KeptInWipe(const std::string& condemned) {
    std::set<std::string> kept(OpenWorkingCopies().begin(), OpenWorkingCopies().end());
    std::vector<platform::FolderEntry> entries;
    platform::list_folder(kDataFolder, entries);
    for (const platform::FolderEntry& entry : entries) {
        const std::string name = entry.name.substr(0, entry.name.find(".cached"));
        if (name != entry.name && name != condemned && !platform::FileLock(name, 0).held()) {
            kept.insert(entry.name);
        }
    }
    return kept;
}

// Where the next pass looks for a new file of the trigger's class.
const wchar_t* RegistryValueOf(std::int32_t triggerType) {
    switch (classOfTrigger(triggerType)) {
        case DbClass::event:
            return L"EDb_Filename";
        case DbClass::wmi_event:
            return L"WDb_Filename";
        case DbClass::periodic:
            break;
    }
    return L"ODb_Filename";
}

}  // namespace

void CreateSqliteDBFolder() {
    if (HasLink(kDataFolder)) {
        return;
    }
    CreateFolders({"C:\\ProgramData\\", "C:\\ProgramData\\Zorv\\", "C:\\ProgramData\\Zorv\\Zorvcore\\", kProductFolder,
                   kDataFolder},
                  "CreateSqliteDBFolder: ");
}

platform::FileLock LockDatabaseFile(const std::string& dbName) {
    constexpr std::uint32_t kLongestWait = 5000;
    return platform::FileLock(dbName, kLongestWait);
}

bool decryptDBFast(TelemetryDb& handle, std::uint8_t key) {
    const std::string cached = Companion(handle.path, ".cached");
    const std::string temporary = Companion(handle.path, ".cached.temp");
    const std::string journal = Companion(handle.path, ".cached-journal");
    const platform::File resting = platform::open_file(handle.path, "rb");
    bool gone = true;
    for (const std::string& left : {cached, temporary, journal}) {
        platform::remove_file(left);
        // Windows does not delete a working copy that a leaked connection of this process (a failed initDB's) holds
        // open. Writing over it works, so that does not end the cycle.
        gone &= !platform::path_exists(left) || OpenWorkingCopies().count(NameOf(left)) != 0;
    }
    handle.cachedPath = cached;
    // Kept: a resting file that cannot be opened counts as absent. The cycle's end replaces it by a new database.
    if (!gone || resting == nullptr) {
        return gone;
    }
    LogMessage("[decryptDBFast] " + handle.path + " exist");
    const platform::File copy = platform::open_file(cached, "wb+");
    // Another process may have put a journal back, which SQLite would replay into the copy.
    return copy != nullptr && CopyTransformed(resting.get(), copy.get(), key) && !platform::path_exists(journal);
}

void encryptDBFast(TelemetryDb& handle, std::uint8_t key) {
    platform::File copy = platform::open_file(handle.cachedPath, "rb");
    if (copy == nullptr) {
        return;
    }
    LogMessage("[encryptDBFast] " + handle.path + " exist");
    const std::string temporary = Companion(handle.cachedPath, ".temp");
    platform::File resting = platform::open_file(temporary, "wb+");
    if (resting == nullptr || !CopyTransformed(copy.get(), resting.get(), key)) {
        return;
    }
    copy.reset();
    resting.reset();
    // Kept: a process that is killed between delete and rename leaves only the .temp, which the next cycle deletes. The
    // file's rows are then lost.
    platform::remove_file(handle.cachedPath);
    platform::remove_file(handle.path);
    platform::rename_file(temporary, handle.path);
}

void validateDB(TelemetryDb& handle) {
    LogMessage("[validateDB] start " + handle.path);
    if (!platform::file_exists(handle.path)) {
        return;
    }
    LogMessage("[validateDB] fileExist");
    int valid = 1;
    sqlite3* db = nullptr;
    if (sqlite3_open(platform::native_path(handle.cachedPath).c_str(), &db) != SQLITE_OK) {  // `db` is usable anyway
        valid = 0;
        LogMessage("[validateDB] sqlite3_open fail");
    }
    if (sqlite3_exec(db, "PRAGMA integrity_check", integritycheckCallback, &valid, nullptr) != SQLITE_OK) {
        valid = 0;
        LogMessage(" validateDB fail ");
    }
    if (sqlite3_close(db) != SQLITE_OK) {
        valid = 0;
        LogMessage("[validateDB] sqlite3_close fail");
    }
    // Kept: nothing is repaired or saved. The caller goes on with an empty database, which is not registered again and
    // is therefore not sent until the month changes its name.
    if (valid == 0) {
        RemoveAllFilesInFolder(kDataFolder, KeptInWipe(NameOf(handle.path)));
        ReportServiceEvent(L"validate file false", kWarning);
        LogMessage(std::string("[validateDB] RemoveAllFilesInFolder: ") + kDataFolder);
    }
}

std::multiset<std::string>& OpenWorkingCopies() {
    static auto* const names = new std::multiset<std::string>;  // never destroyed: pool threads use it to the end
    return *names;
}

int integritycheckCallback(void* context, int count, char** values, char** names) try {
    if (count != 1) {
        LogMessage("[integritycheckCallback] fail");
        return 0;
    }
    const char* const value = values[0] != nullptr ? values[0] : "ISNULL";
    *static_cast<int*>(context) = std::strcmp(value, "ok") == 0 ? 1 : 0;  // a later row overwrites it; "ok" comes alone
    LogMessage(std::string("[integritycheckCallback] azColName: ") + names[0] + " value " + value);
    return 0;
} catch (...) {  // no exception may pass through SQLite's C code; out of memory, only the log line is lost
    return 0;
}

std::string AutoDBFileNameOf(const std::string& deviceUuid, const std::string& now) {
    std::array<char, 50> buffer{};
    std::size_t used = 0;
    const auto append = [&](char c) {
        if (used >= buffer.size()) {
            throw std::out_of_range("device UUID too long for a file name");  // Kept: ends the whole collection
        }
        buffer[used++] = c;
    };
    for (const char c : deviceUuid) {
        if (c != '-') {
            append(c);
        }
    }
    append('_');
    if (now.size() >= 19) {
        for (const std::size_t at : {0, 1, 2, 3, 5, 6}) {  // year and month
            append(now[at]);
        }
    }
    return std::string(buffer.data(), used) + "_" + "V1-0";
}

std::string getAutoDBFileName() {
    LogMessage("[in] getAutoDBFileName");
    const std::string uuid = getDeviceUUID();
    std::string name = AutoDBFileNameOf(uuid, NowTimeString());
    LogMessage("getAutoDBFileName::dbFileName: " + name);
    LogMessage("[out] getAutoDBFileName");
    return name;
}

void setDbPath(DataCollector& collector) {
    collector.dbName += "_" + getAutoDBFileName() + ".db";
    LogMessage("dbName:    " + collector.dbName);
    const platform::FileLock lock = LockDatabaseFile(collector.dbName);
    if (platform::file_exists(kDataFolder + collector.dbName)) {
        LogMessage("db file already exists");
        return;
    }
    LogMessage("db file doesn't exist");
    // Kept: replaces the name of an older file that no pass has taken yet. That file is then never sent.
    const std::string now = NowTimeString();
    const std::string value = collector.dbName + ";" + std::to_string(static_cast<std::int32_t>(collector.dbClass)) +
                              ";" + (now.size() >= 19 ? now.substr(0, 10) : "");
    WriteRegString(kLocalMachine, kProductKey, RegistryValueOf(collector.triggerType), WidenBytes(value));
}

}  // namespace zorvalis
