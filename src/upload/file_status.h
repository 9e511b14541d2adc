// The record of every database file's progress: one row for each file in the table FILESTATUS of "BGFS.db". A pass
// registers new files here; the upload job asks which files to delete and which to send, and sends them. Callers hold
// the job lock, as for everything that touches a database file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "upload/file_record.h"
#include "upload/status_cycle.h"

namespace zorvalis {

inline constexpr char kStatusDb[] = "BGFS.db";

inline constexpr std::int32_t kKeptFiles = 10;  // of a type; older ones are thrown away, sent or not
inline constexpr std::int32_t kAgeInDays = 2;   // before which a file is not sent, in days of UTC
inline constexpr std::int32_t kMostTries = 24;  // after which a file is given up

inline constexpr std::uint32_t kPause = 200;    // milliseconds before a chunk and before the finish
inline constexpr std::int32_t kChunkIndex = 1;  // the upload job's

// Bytes of the file in one piece, by the caller's index. The first stands for every index that is not listed.
constexpr std::int32_t ChunkSizeOf(std::int32_t index) {
    constexpr std::array<std::int32_t, 7> kSizes = {8192, 16384, 32768, 65536, 131072, 262144, 524288};
    return index >= 1 && index < static_cast<std::int32_t>(kSizes.size()) ? kSizes[index] : kSizes[0];
}

// Whether the upload may touch a file of that name. Local users may be able to plant rows: one could name a file
// elsewhere, the status database itself, or a working copy. Callers treat such a file as missing.
bool IsRecordedName(const std::string& name);

class BG_FILESTATUS_CONTROLLER {
public:
    // Opens the database and makes sure that its table exists. A failure is only logged: the object stays usable, and
    // the operations below fail by themselves.
    explicit BG_FILESTATUS_CONTROLLER(std::string dbName = kStatusDb);
    ~BG_FILESTATUS_CONTROLLER();
    BG_FILESTATUS_CONTROLLER(const BG_FILESTATUS_CONTROLLER&) = delete;
    BG_FILESTATUS_CONTROLLER& operator=(const BG_FILESTATUS_CONTROLLER&) = delete;

    // Registering a file: open, set the fields of the current record, commit, close. A row of the same name is
    // replaced, its progress included. A failed commit is only logged; without an open database it does nothing.
    bool fopenDB(const std::string& dbName);
    bool fcloseDB();
    void setFileName(std::string name) { record_.fileName = std::move(name); }
    void setFileType(std::int32_t type) { record_.fileType = type; }
    void setFileCreateDate(std::string date) { record_.createDate = std::move(date); }
    void setFileUploadStartTime(std::string time) { record_.uploadStartTime = std::move(time); }
    void setFileUploadedTime(std::string time) { record_.uploadedTime = std::move(time); }
    void commit();

    // The operations from here on open the database for the length of one call. They first end the cycle of the
    // constructor or of fopenDB: of two open cycles on one file, the last to close overwrites what the other wrote.

    // Files that count against the keep limit, oldest first; the single name "OPEN ERROR" when the database cannot be
    // opened.
    std::vector<std::string> getDeletFileNameList(std::int32_t fileType, const std::string& dbName);

    // Files to send now, oldest first: made at least `ageInDays` days ago (UTC), not sent yet, not given up. A single
    // record without a name when the database cannot be opened.
    std::vector<FileRecord> getUploadFileList(std::int32_t fileType, std::int32_t ageInDays, const std::string& dbName);

    // Deletes the oldest files of a type beyond the number to keep, sent or not, and marks their rows as gone (2);
    // startDeleteFileRecord then deletes all rows that are marked so.
    void startDelete(std::int32_t fileType, std::int32_t keep, const std::string& dbName);
    void startDeleteFileRecord(const std::string& dbName);

    // Sends the files of a type that are due. Returns the UploadStatus of the run; an answer that is not JSON, or has
    // no status, throws. `chunkIndex` chooses the size of a piece (1 is 16 KiB).
    std::int32_t startUpload(std::int32_t fileType, std::int32_t chunkIndex, std::int32_t ageInDays,
                             const std::string& dbName);

    // Sends one file and records each step in its row over `database`, startUpload's connection. Returns the file's
    // UploadStatus; throws as startUpload does.
    std::int32_t uploading(sqlite3* database, const FileRecord& record, std::int32_t chunkIndex);

private:
    void OpenCycle(const std::string& dbName);
    void EndCycle();

    FileRecord record_;
    bool isOpen_ = false;          // by fopenDB; the constructor's opening does not count
    std::int32_t lastResult_ = 0;  // SQLite's, of the latest open or commit
    std::optional<StatusCycle> cycle_;
};

// Sets the first `count` of `columns` in the row of `fileName`. A value is a decimal integer, or a text that brings its
// own single quotes; any other value, and a name with a quote, makes the call fail. A failure is logged and gives
// false. The second form sets one column.
bool updateFileStatus(sqlite3* database, const std::vector<std::string>& columns,
                      const std::vector<std::string>& values, std::int32_t count, const std::string& fileName);
bool updateFileStatus(FileColumn column, sqlite3* database, const std::string& fileName, std::string value);

}  // namespace zorvalis
