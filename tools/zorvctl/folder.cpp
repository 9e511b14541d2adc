// The links of a status about the data folder: whether files can be made there, which are damaged, which are full. A
// file is read once into memory, without its lock: a cycle renames a whole file into place, so a reader never sees
// half of one.
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "base/number.h"
#include "base/text.h"
#include "collection/collectors.h"
#include "collection/zorv_win_io_dll.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/time.h"
#include "database_reader.h"
#include "facts.h"
#include "host.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/uuid.h"
#include "store/db_file.h"
#include "upload/file_status.h"

namespace zorvalis {

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kAccessDenied = 5;
constexpr std::uintmax_t kLittleRoom = 16 << 20;

// The working copy of a resting file as a pass would have it, in memory, or nothing when it cannot be read. A cycle
// leaves the file missing for a moment.
std::optional<std::string> WorkingCopy(const std::string& path) {
    for (int tries = 0; tries < 5; ++tries) {
        try {
            std::string bytes = ReadWholeFile(path);
            for (char& byte : bytes) {
                byte = static_cast<char>(static_cast<unsigned char>(byte) ^ kDbKey);
            }
            return bytes;
        } catch (const Failure&) {
            platform::sleep_milliseconds(20);
        }
    }
    return std::nullopt;
}

class Image {
public:
    explicit Image(std::string bytes) : bytes_(std::move(bytes)) {
        sqlite3* connection = nullptr;
        sqlite3_open(":memory:", &connection);
        connection_.reset(connection);
        const auto size = static_cast<sqlite3_int64>(bytes_.size());
        sqlite3_deserialize(connection, "main", reinterpret_cast<unsigned char*>(bytes_.data()), size, size,
                            SQLITE_DESERIALIZE_READONLY);
    }

    // By the check and the callback of validateDB. A file of no bytes is a database without tables to both.
    bool IsSound() const {
        int valid = 1;
        const int result = bytes_.empty() ? SQLITE_OK
                                          : sqlite3_exec(connection_.get(), "PRAGMA integrity_check",
                                                         integritycheckCallback, &valid, nullptr);
        return result == SQLITE_OK && valid == 1;
    }

    // 0 for a table that is not there: a pass makes it.
    std::int32_t Rows(const std::string& table) const {
        RecordCount total;
        const int result = sqlite3_exec(connection_.get(), ("SELECT COUNT(*) FROM " + table).c_str(),
                                        totalRecordCallback, &total, nullptr);
        return bytes_.empty() || result != SQLITE_OK ? 0 : total.count;
    }

private:
    std::string bytes_;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection_{nullptr, sqlite3_close};
};

struct Kind {
    const char* setting;
    CollectionKind kind;
};
constexpr Kind kKinds[] = {{"thermal", CollectionKind::Thermal},
                           {"battery_power", CollectionKind::Battery_Power},
                           {"systeminfo", CollectionKind::SysInfo},
                           {"", CollectionKind::UserBehavior}};

class Reader {
public:
    explicit Reader(Facts& facts) : facts_(facts) {}

    void Read() {
        if (ReadPlace()) {
            ReadFiles();
        }
    }

private:
    void Add(const char* name, LinkState state, const std::string& why, const std::string& mend = "") {
        facts_.links.push_back({name, state, ReadableText(why), ReadableText(mend)});
    }

    // Whether the folder's files can be looked at.
    bool ReadPlace() {
        const std::string path = Native(kDataFolder);
        const std::uint32_t error = platform::list_folder(kDataFolder, entries_);
        const bool there = platform::folder_exists(kDataFolder), windows = platform::machine_folder().empty();
        std::string made = path;  // what is there of it
        std::error_code unseen;
        while (!fs::exists(made, unseen) && fs::path(made).has_parent_path() && fs::path(made).parent_path() != made) {
            made = fs::path(made).parent_path().string();
        }
        const std::string ask = windows ? "run `zorvctl status` as administrator" : "ask as its owner";
        const std::string rights =
            windows ? "give SYSTEM its rights there: `icacls \"" + made + "\" /grant SYSTEM:(OI)(CI)F`"
                    : "`chmod u+rwx '" + made + "'`, as its owner";
        if (HasLink(kDataFolder)) {
            Add("folder", LinkState::broken, path + " leads through a link, and the service uses no such path",
                "put a real folder in the link's place");
        } else if (!there && fs::exists(made, unseen) && !fs::is_directory(made, unseen)) {
            Add("folder", LinkState::broken, made + " is a file where a folder has to be", "move that file away");
        } else if (there && error == kAccessDenied) {
            Add("folder", LinkState::unknown, path + " may not be read by this caller", ask);
        } else if (const std::optional<bool> may = MayWriteIn(made); !may) {
            Add("folder", LinkState::unknown, "this caller cannot see whether the service may write in " + made, ask);
        } else if (!*may) {
            Add("folder", LinkState::broken, made + " cannot be written", rights);
        } else {
            Add("folder", LinkState::held, there ? path + " can be written" : path + " is made by the first pass");
        }
        const LinkState folder = facts_.links.back().state;
        if (folder != LinkState::broken) {
            ReadRoom(made);
        }
        return folder == LinkState::held && there;
    }

    // A cycle writes the file twice before it deletes the old one.
    void ReadRoom(const std::string& folder) {
        std::uintmax_t largest = 64 << 10;
        for (const platform::FolderEntry& entry : entries_) {
            const std::int64_t size = entry.folder ? 0 : GetFileSize(kDataFolder + entry.name);
            largest = std::max(largest, static_cast<std::uintmax_t>(std::max<std::int64_t>(size, 0)));
        }
        std::error_code error;
        const std::uintmax_t free = fs::space(folder, error).available;
        const std::string bytes = std::to_string(free) + " bytes are free";
        if (error) {
            return Add("room", LinkState::warning, "the free bytes cannot be asked for: " + error.message());
        }
        Add("room",
            free < 2 * largest   ? LinkState::broken
            : free < kLittleRoom ? LinkState::warning
                                 : LinkState::held,
            free < 2 * largest ? bytes + ", too few to write a file anew" : bytes,
            free < kLittleRoom ? "free some of the disk" : "");
    }

    // The one that names the files; empty for one that the next pass makes. Asks as getDeviceUUID does.
    static std::string DeviceUuid() {
        ZorvWinIoDll hardware(false);
        platform::Uuid uuid{};
        if (hardware.GPNV_Get_RandomUUID(uuid.data()) != 0) {
            const std::wstring copy = ReadRegString(kLocalMachine, kConfigKey, L"RandomUUID");
            return copy == ERROR_READREG ? "" : NarrowBytes(copy);
        }
        const bool blank = std::all_of(uuid.begin(), uuid.end(), [](std::uint8_t byte) { return byte == 0xFF; });
        return blank ? "" : NarrowBytes(platform::uuid_to_text(uuid));
    }

    void ReadFiles() {
        std::string month;
        try {
            month = "_" + AutoDBFileNameOf(DeviceUuid(), NowTimeString()) + ".db";
        } catch (const std::out_of_range&) {
            Add("identity", LinkState::broken, "the device's UUID is too long for a file name",
                "`zorvctl registry delete SOFTWARE/Zorv/Config RandomUUID`");
        }
        std::string damaged, unread, full;
        int sound = 0;
        for (const platform::FolderEntry& entry : entries_) {
            const bool current = entry.name.substr(1) == month;
            const bool cached = entry.folder && entry.name.substr(1) == month + ".cached";
            if (entry.name[0] == *LetterOf(DbClass::periodic) &&
                (cached || (current && (entry.folder || HasLink(kDataFolder + entry.name))))) {
                Add("record", LinkState::broken,
                    entry.name + " is a folder or a link where the service needs a file of its own", "move it away");
                continue;
            }
            if (entry.folder || !entry.name.ends_with(".db")) {
                continue;
            }
            const bool huge = GetFileSize(kDataFolder + entry.name) > static_cast<std::int64_t>(kLargestDatabase);
            const std::optional<std::string> copy = huge ? std::nullopt : WorkingCopy(kDataFolder + entry.name);
            const auto name = [&](const std::string& list) {
                return (list.empty() ? "" : ", ") + entry.name + (huge ? " (larger than 1 GiB)" : "");
            };
            if (!copy) {
                // The file may have been deleted by a pass since the folder was listed.
                unread += platform::file_exists(kDataFolder + entry.name) ? name(unread) : "";
                monthUnread_ |= current;
                continue;
            }
            const Image image(*copy);
            ++sound;
            if (!image.IsSound()) {
                damaged += name(damaged);
            } else if (current) {
                AddFull(entry.name, image, full);
            }
        }
        AddFiles(damaged, unread, sound);
        AddRows(full);
    }

    void AddFiles(const std::string& damaged, const std::string& unread, int sound) {
        const std::string folder = Native(kDataFolder);
        if (!damaged.empty()) {
            Add("files", LinkState::warning,
                "damaged: " + damaged +
                    "; the next work on such a file deletes all files of the folder, and collecting begins anew",
                "save the others now: copy " + folder + " elsewhere, then delete the damaged file");
        }
        if (!unread.empty()) {
            Add("files", monthUnread_ ? LinkState::unknown : LinkState::warning,
                "not readable: " + unread + "; a pass that cannot read one either replaces it by a new file",
                platform::machine_folder().empty() ? "run `zorvctl status` as administrator" : "ask as their owner");
        }
        if (damaged.empty() && unread.empty()) {
            Add("files", LinkState::held, std::to_string(sound) + (sound == 1 ? " file is" : " files are") + " sound");
        }
    }

    void AddFull(const std::string& file, const Image& image, std::string& full) {
        for (const DbClass dbClass : {DbClass::periodic, DbClass::event, DbClass::wmi_event}) {
            for (const Kind& kind : kKinds) {
                const std::string table = TableName(kind.kind);
                const std::int32_t rows = file[0] == *LetterOf(dbClass) ? image.Rows(table) : 0;
                if (!TakesAnotherRow(dbClass, table, rows)) {
                    full += (full.empty() ? "" : ", ") + file.substr(0, 1) + " " + table + " (" + std::to_string(rows) +
                            ")";
                    if (dbClass == DbClass::periodic && *kind.setting != '\0') {
                        facts_.full.insert(kind.setting);
                    }
                }
            }
        }
    }

    // A full table is no fault: the limits are that low. Only when no kind that lives has room, nothing is stored.
    void AddRows(const std::string& full) {
        std::set<std::string> idle = facts_.full;
        idle.insert(facts_.dead.begin(), facts_.dead.end());
        const bool all = idle.size() == std::size(kKinds) - 1 && idle.size() > facts_.dead.size();
        Add("rows", all ? LinkState::broken : LinkState::held,
            full.empty() ? "no table of this month is full" : "full until the month changes: " + full,
            all ? "wait: the next month has a new file" : "");
        facts_.links.back().passes = facts_.links.back().samplesOnly = all;
    }

    static std::string Native(const char* folder) {
        const std::string path = platform::native_path(folder);
        return path.substr(0, path.find_last_not_of("/\\") + 1);
    }

    Facts& facts_;
    std::vector<platform::FolderEntry> entries_;
    bool monthUnread_ = false;
};

}  // namespace

void ReadFolder(Facts& facts) {
    Reader(facts).Read();
}

}  // namespace zorvalis
