// The record of every database file's progress: one row a file in the table FILESTATUS of "BGFS.db". It registers
// finished files, names those to send and those to throw away, and is written at each step of an upload. Under the job
// lock, like all that touches a database file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "upload/file_record.h"
#include "upload/status_cycle.h"

namespace zorvalis {

inline constexpr char kStatusDb[] = "BGFS.db";

// Whether a row's name is that of a file which the upload may touch. Rows can be planted: one may name a file
// elsewhere, the status database, or a working copy. Such a file is not there.
bool IsRecordedName(const std::string& name);

class BG_FILESTATUS_CONTROLLER {
public:
    // Opens the database and makes sure that its table exists; nothing is committed by that connection. When that fails
    // the object stays usable, and later opens fail on their own.
    explicit BG_FILESTATUS_CONTROLLER(std::string dbName = kStatusDb);
    ~BG_FILESTATUS_CONTROLLER();
    BG_FILESTATUS_CONTROLLER(const BG_FILESTATUS_CONTROLLER&) = delete;
    BG_FILESTATUS_CONTROLLER& operator=(const BG_FILESTATUS_CONTROLLER&) = delete;

    // The registering side: open, fill the current record, commit, close. A row of the same name is replaced.
    bool fopenDB(const std::string& dbName);
    bool fcloseDB();
    void setFileName(std::string name) { record_.fileName = std::move(name); }
    void setFileType(std::int32_t type) { record_.fileType = type; }
    void setFileCreateDate(std::string date) { record_.createDate = std::move(date); }
    void setFileUploadStartTime(std::string time) { record_.uploadStartTime = std::move(time); }
    void setFileUploadedTime(std::string time) { record_.uploadedTime = std::move(time); }
    void commit();

    // All others run cycles of their own, each ended when it returns; the controller's is ended before: two on one file
    // would lose data.

    // Files that count against the keep limit, oldest first; the single name "OPEN ERROR" when they can't be read.
    std::vector<std::string> getDeletFileNameList(std::int32_t fileType, const std::string& dbName);

    // Files to send now, oldest first; a single record without a name when they can't be read.
    std::vector<FileRecord> getUploadFileList(std::int32_t fileType, std::int32_t ageInDays, const std::string& dbName);

    // Removes the oldest files of a type beyond the number to keep, sent or not; their rows wait for
    // startDeleteFileRecord.
    void startDelete(std::int32_t fileType, std::int32_t keep, const std::string& dbName);
    void startDeleteFileRecord(const std::string& dbName);

    // Sends the files that are due. The result code of the run.
    std::int32_t startUpload(std::int32_t fileType, std::int32_t chunkIndex, std::int32_t ageInDays,
                             const std::string& dbName);

    // Sends one file and records each step in its row, by the connection that startUpload holds. Its result code.
    std::int32_t uploading(sqlite3* database, const FileRecord& record, std::int32_t chunkIndex);

private:
    void OpenCycle(const std::string& dbName);
    void EndCycle();

    FileRecord record_;
    bool isOpen_ = false;          // through fopenDB
    std::int32_t lastResult_ = 0;  // of the latest open or commit
    std::optional<StatusCycle> cycle_;
};

// Sets columns of one row; a text brings its own single quotes. A value that is neither a number nor such a text, or a
// name with a quote, makes the statement one that fails.
bool updateFileStatus(sqlite3* database, const std::vector<std::string>& columns,
                      const std::vector<std::string>& values, std::int32_t count, const std::string& fileName);
bool updateFileStatus(FileColumn column, sqlite3* database, const std::string& fileName, std::string value);

}  // namespace zorvalis
