// One row of the table FILESTATUS in "BGFS.db": what a database file is, how far its upload got, what the server last
// said. The values of `status`:
//
//   0  registered, not yet sent
//   1  uploaded
//   2  gone from disk, the row waits to be deleted
//   3  the latest attempt failed
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace zorvalis {

// A date that was never set. It sorts before every real one, so such a file counts as the oldest.
inline constexpr char kNoDate[] = "1900-01-01 00:00:00";

struct FileRecord {
    std::string fileName;              // bare, in the data folder
    std::int32_t fileType = 0;         // 1, 2 or 3, the DbClass of the file
    std::string createDate = kNoDate;  // "2026-11-12"; says when the file may be sent, and which is the oldest
    std::int32_t status = 0;
    std::int32_t size = 0;                  // bytes, as last measured; -1 for a value that is not a 32-bit number
    std::int32_t uploadBytes = 0;           // that the server has taken; only written, since the server is asked
    std::string uploadStartTime = kNoDate;  // of the latest attempt, local time
    std::string uploadedTime = kNoDate;     // the end of the latest attempt, good or bad
    std::int32_t uploadStatus = 0;          // 1 while an attempt runs, then its result code
    std::string serverResponse;
    std::string md5;   // of the whole file, in lower-case hexadecimal digits
    std::string uuid;  // the server's name for the upload
    std::int32_t tryCount = 0;
    std::string uploadStage;  // the step reached, in words
};

enum FileColumn : std::int32_t {
    FILE_NAME,
    FILE_TYPE,
    FILE_CREATEDATE,
    FILE_STATUS,
    FILE_SIZE,
    FILE_UPLOAD_BYTES,
    FILE_UPLOAD_START_TIME,
    FILE_UPLOADED_TIME,
    FILE_UPLOAD_STATUS,
    FILE_SERVER_RESPONSE,
    FILE_MD5,
    FILE_UUID,
    FILE_TRY_COUNT,
    FILE_UPLOAD_STAGE,
};

// How a column is declared, and which member of FileRecord it holds: one of the two pointers is null.
struct FileColumnRow {
    bool primaryKey;
    const char* name;
    const char* type;
    std::int32_t FileRecord::*number;
    std::string FileRecord::*text;
};

// In the order of FileColumn.
inline constexpr std::array<FileColumnRow, 14> kFileColumns = {{
    {true, "FILE_NAME", "TEXT", nullptr, &FileRecord::fileName},
    {false, "FILE_TYPE", "INTEGER", &FileRecord::fileType, nullptr},
    {false, "FILE_CREATEDATE", "DATE", nullptr, &FileRecord::createDate},
    {false, "FILE_STATUS", "INTEGER", &FileRecord::status, nullptr},
    {false, "FILE_SIZE", "INTEGER", &FileRecord::size, nullptr},
    {false, "FILE_UPLOAD_BYTES", "INTEGER", &FileRecord::uploadBytes, nullptr},
    {false, "FILE_UPLOAD_START_TIME", "DATE", nullptr, &FileRecord::uploadStartTime},
    {false, "FILE_UPLOADED_TIME", "DATE", nullptr, &FileRecord::uploadedTime},
    {false, "FILE_UPLOAD_STATUS", "INTEGER", &FileRecord::uploadStatus, nullptr},
    {false, "FILE_SERVER_RESPONSE", "TEXT", nullptr, &FileRecord::serverResponse},
    {false, "FILE_MD5", "TEXT", nullptr, &FileRecord::md5},
    {false, "FILE_UUID", "TEXT", nullptr, &FileRecord::uuid},
    {false, "FILE_TRY_COUNT", "INTEGER", &FileRecord::tryCount, nullptr},
    {false, "FILE_UPLOAD_STAGE", "TEXT", nullptr, &FileRecord::uploadStage},
}};

}  // namespace zorvalis
