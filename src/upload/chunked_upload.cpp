// The upload of BG_FILESTATUS_CONTROLLER (startUpload, uploading): each file goes to the server in small pieces, from
// the offset that the server names. Every step is written to the file's row as it is reached, so the row of an upload
// that was killed shows how far it got. Nothing is tried again within a run; the next run of the upload job does that.
#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "collection/collectors.h"
#include "common/files.h"
#include "common/log.h"
#include "common/time.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "store/db_file.h"
#include "upload/answer.h"
#include "upload/chunk_hash.h"
#include "upload/file_status.h"
#include "upload/http_client.h"
#include "upload/server_calls.h"
#include "upload/status_cycle.h"
#include "upload/upload_status.h"

namespace zorvalis {
namespace {

std::string Quoted(std::string text) {
    return "'" + std::move(text) + "'";
}

// Whether the row's file exists. A row can be planted: what its name may not be counts as missing.
bool IsThere(const std::string& name) {
    return IsRecordedName(name) && IsInDataFolder(name);
}

// The server could not be reached, or answered with a status other than 200.
bool IsNoAnswer(const Json& answer) {
    return answer == 0;
}

// Writes columns of the row of the file that is being sent. A failed write is only logged: the upload goes on.
class Row {
public:
    Row(sqlite3* database, const std::string& fileName) : database_(database), fileName_(fileName) {}

    void Set(FileColumn column, std::string value) const {
        updateFileStatus(column, database_, fileName_, std::move(value));
    }
    void Set(FileColumn column, std::int64_t value) const { Set(column, std::to_string(value)); }
    void SetStage(const std::string& stage) const { Set(FILE_UPLOAD_STAGE, stage); }

private:
    sqlite3* database_;
    const std::string& fileName_;
};

// A file on its way. The steps below fill it in and return 0 to go on, or the result code that ends the attempt.
struct Sending {
    const Row& row;
    const FileRecord& record;
    std::string path;
    std::int64_t size = 0;
    std::string md5 = {};
    std::string uuid = {};        // the server's, of this attempt
    std::int64_t offset = 0;      // of the first byte that the server does not have
    std::string response = "OK";  // becomes the row's FILE_SERVER_RESPONSE
};

// Ends the attempt with `code`, and with `response` in the row.
std::int32_t Ended(Sending& file, std::int32_t code, std::string response) {
    file.response = std::move(response);
    return code;
}

// Step 1: size and MD5. Kept: a row that has an MD5 keeps it, so a file that got rows after its first attempt is
// announced with its old checksum.
std::int32_t Measure(Sending& file) {
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step1 get file total size and file checksum");
    file.size = GetFileSize(file.path);
    // Offsets have 32 bits, and so has the size in the row: a value that does not fit there was read as -1.
    if (file.size < 0 || file.size > std::numeric_limits<std::int32_t>::max() || file.record.size < 0) {
        file.row.SetStage("'filesize < 0'");
        return BG_UPLOAD_STATUS_ERROR;
    }
    if (file.record.size == 0 || file.record.size != file.size) {
        file.row.Set(FILE_SIZE, file.size);
    }
    file.md5 = file.record.md5;
    if (!file.md5.empty()) {
        return 0;
    }
    file.row.SetStage("'Create MD5 for File'");
    std::optional<std::string> md5;
    createMD5forFile(file.path, md5);
    if (!md5) {
        return BG_UPLOAD_STATUS_MD5_ERROR;
    }
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Create CMD5 : " + *md5);
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Create md5str : " + *md5 +
               " filesize : " + std::to_string(file.size));
    file.row.Set(FILE_MD5, Quoted(*md5));
    file.md5 = *md5;
    return 0;
}

// Step 2. Success when the server has the whole file already.
std::int32_t AskWhereToStart(Sending& file) {
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step2. Query current file start position");
    file.row.SetStage("'inituploadfile'");
    const Json inituploadjson = InitUploadFile(file.record.fileName, file.size, file.md5);
    if (IsNoAnswer(inituploadjson)) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step2 inituploadjson == NULL");
        return Ended(file, BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR, "BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR");
    }
    const std::string status = AnswerText(inituploadjson, "status");
    if (status == "UPLOAD_FINISHED") {
        LogMessage(
            "[BG_FILESTATUS_CONTROLLER][uploading] inituploadjson[\"status\"].get<std::string>() == "
            "\"UPLOAD_FINISHED\"");
        return Ended(file, BG_UPLOAD_STATUS_SUCCESS, "UPLOAD_FINISHED");
    }
    if (status != "OK") {
        LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR ");
        return Ended(file, BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR, status);
    }
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step2 inituploadjson[\"status\"].get<std::string>() =  \"OK\" " +
               DumpJson(inituploadjson));
    file.uuid = AnswerText(inituploadjson, "fileuuid");
    if (file.record.uuid.empty()) {  // Kept: the row keeps its first one, this attempt uses the latest
        file.row.Set(FILE_UUID, Quoted(file.uuid));
    }
    file.offset = AnswerNumber(inituploadjson, "filesize");
    return 0;
}

// Step 3, once for each piece. Deletes the chunk file when the server has taken it; after a failure it stays until the
// next attempt begins.
std::int32_t SendChunk(Sending& file, std::int32_t chunkSize) {
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step3 uploadbytes: " + std::to_string(file.offset) + " < " +
               " filesize: " + std::to_string(file.size));
    file.row.SetStage("'getMD5'");
    std::optional<std::string> chunkPath;
    // A cycle of another process replaces the file and leaves it missing for a moment: keep it out while reading.
    platform::FileLock lock = LockDatabaseFile(file.record.fileName);
    const std::string md5 = getMD5(file.path, static_cast<std::int32_t>(file.offset), chunkSize, false, chunkPath);
    lock = {};
    if (md5.empty()) {
        return Ended(file, BG_UPLOAD_STATUS_MD5_ERROR, "BG_UPLOAD_STATUS_MD5_ERROR");
    }
    LogMessage("BG_FILESTATUS_CONTROLLER: uploading : Step3 split the file and get md5:" + md5);
    if (!chunkPath) {
        return 0;  // Kept: without a chunk file, the same offset is tried again
    }
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step3 chunkfilepath != NULL");
    const std::string chunk = base64_FileEncode(*chunkPath);
    if (chunk == " ") {  // the chunk file cannot be opened
        LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step3 chunkbase64 is empty");
        return Ended(file, BG_UPLOAD_STATUS_BASE64_ERROR, "BG_UPLOAD_STATUS_BASE64_ERROR");
    }
    platform::sleep_milliseconds(kPause);
    file.row.SetStage("'uploadfilechunk uploadbytes:" + std::to_string(file.offset) + "'");
    const Json uploadfilechunkjson = UploadFileChunk(file.uuid, chunk, md5);
    if (IsNoAnswer(uploadfilechunkjson)) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] uploadfilechunkjson == NULL");
        return Ended(file, BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR, "BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR");
    }
    const std::string status = AnswerText(uploadfilechunkjson, "status");
    if (status != "OK") {
        LogMessage(
            "[BG_FILESTATUS_CONTROLLER][uploading] uploadfilechunkjson[\"status\"].get<std::string>() != \"OK\" ");
        return Ended(file, BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR, status);
    }
    file.offset += std::min<std::int64_t>(chunkSize, file.size - file.offset);
    file.response = "BG_UPLOAD_STATUS_UPLOADFILECHUNK: " + std::to_string(file.offset);
    file.row.Set(FILE_UPLOAD_BYTES, file.offset);
    platform::remove_file(*chunkPath);
    return 0;
}

// Step 4: the server is told that it has all pieces.
std::int32_t FinishFile(Sending& file) {
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step 4 call finishupload: uploadbytes " +
               std::to_string(file.offset) + " " + std::to_string(file.size));
    platform::sleep_milliseconds(kPause);
    file.row.SetStage("'finishupload uploadbytes:" + std::to_string(file.offset) + "'");
    const Json finishjson = FinishUpload(file.uuid);
    if (IsNoAnswer(finishjson)) {
        return Ended(file, BG_UPLOAD_STATUS_FINISHUPLOAD_ERROR, "BG_UPLOAD_STATUS_FINISHUPLOAD_ERROR");
    }
    const std::string status = AnswerText(finishjson, "status");
    if (status != "OK") {
        return Ended(file, BG_UPLOAD_STATUS_FINISHUPLOAD_ERROR, "BG_UPLOAD_STATUS_FINISHUPLOAD: " + status);
    }
    return Ended(file, BG_UPLOAD_STATUS_SUCCESS, "BG_UPLOAD_STATUS_SUCCESS");
}

std::int32_t SendToServer(Sending& file, std::int32_t chunkSize) {
    std::int32_t code = AskWhereToStart(file);
    // The offset that the server names is believed, even a negative one: pieces before the first byte are sent empty.
    // A hundred pieces more than the file has end such an attempt, which could otherwise last for hours.
    constexpr std::int64_t kMostEmptyPieces = 100;
    std::int64_t pieces = file.size / chunkSize + 1 + kMostEmptyPieces;
    while (code == 0 && file.offset < file.size) {
        code = pieces-- > 0
                   ? SendChunk(file, chunkSize)
                   : Ended(file, BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR, "BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR");
    }
    return code == 0 ? FinishFile(file) : code;
}

// Writes the row's FILE_STATUS after an attempt; any failed file makes the run's `result` a failure. A missing file
// does not: `uploading` has set its status to 2.
void RecordOutcome(const Row& row, std::int32_t code, std::int32_t& result) {
    if (code < BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR) {
        row.Set(FILE_STATUS, std::int64_t{code} - 1);  // success, 2, becomes uploaded, 1
    } else if (code != BG_UPLOAD_STATUS_FILE_NOT_EXIST) {
        row.Set(FILE_STATUS, std::int64_t{3});
        result = BG_UPLOAD_STATUS_ERROR;
    }
}

}  // namespace

std::int32_t BG_FILESTATUS_CONTROLLER::startUpload(std::int32_t fileType, std::int32_t chunkIndex,
                                                   std::int32_t ageInDays, const std::string& dbName) {
    LogMessage("[BG_FILESTATUS_CONTROLLER][startUpload] Start ...");
    if (!checkNewtWork()) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][startUpload] BG_UPLOAD_STATUS_NETWORK_ERROR");
        return BG_UPLOAD_STATUS_NETWORK_ERROR;
    }
    const std::vector<FileRecord> files = getUploadFileList(fileType, ageInDays, dbName);
    if (files.empty()) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][startUpload] BG_UPLOAD_STATUS_FILEEMPTY");
        return BG_UPLOAD_STATUS_FILEEMPTY;
    }
    if (files.size() == 1 && files[0].fileName.empty()) {
        return BG_UPLOAD_STATUS_LIST_OPEN_ERROR;
    }
    std::int32_t result = BG_UPLOAD_STATUS_SUCCESS;
    {
        StatusCycle cycle(dbName);
        if (!cycle.IsOpen()) {
            LogMessage("[BG_FILESTATUS_CONTROLLER][startUpload] Error Opening SQLite3 datbase");
            return BG_UPLOAD_STATUS_ERROR;
        }
        for (const FileRecord& file : files) {
            const Row row(cycle.Connection(), file.fileName);
            row.Set(FILE_UPLOAD_START_TIME, Quoted(NowTimeString()));
            row.Set(FILE_UPLOAD_STATUS, std::int64_t{BG_UPLOAD_STATUS_IN_PROGRESS});
            row.SetStage("'initUploadFile start'");
            // A file that leaves the machine has all four tables. A missing one must stay missing: this would make it.
            if (const platform::FileLock lock = LockDatabaseFile(file.fileName); IsThere(file.fileName)) {
                createAllTables(file.fileName, static_cast<DbClass>(file.fileType));
            }
            // Kept: an answer that is not JSON, or has no status, throws out of the whole run. Its try is not counted,
            // and the files behind it wait.
            const std::int32_t code = uploading(cycle.Connection(), file, chunkIndex);
            row.Set(FILE_UPLOADED_TIME, Quoted(NowTimeString()));
            LogMessage("[BG_FILESTATUS_CONTROLLER][startUpload] file: " + file.fileName +
                       " upload status: " + std::to_string(code));
            row.Set(FILE_UPLOAD_STATUS, std::int64_t{code});
            row.Set(FILE_TRY_COUNT, std::int64_t{file.tryCount} + 1);
            RecordOutcome(row, code, result);
        }
    }
    LogMessage("[BG_FILESTATUS_CONTROLLER][startUpload] Return ...");
    return result;
}

std::int32_t BG_FILESTATUS_CONTROLLER::uploading(sqlite3* database, const FileRecord& record, std::int32_t chunkIndex) {
    LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Start");
    const Row row(database, record.fileName);
    row.SetStage("'uploading start'");
    if (database == nullptr) {
        row.SetStage("'updb == NULL'");
        return BG_UPLOAD_STATUS_ERROR;
    }
    Sending file{row, record, kDataFolder + record.fileName};
    platform::FileLock lock = LockDatabaseFile(record.fileName);
    if (lock.held() && IsRecordedName(record.fileName)) {  // without the lock another process may be using them
        RemoveLeftovers(record.fileName);
    }
    if (!IsThere(record.fileName)) {
        LogMessage("[BG_FILESTATUS_CONTROLLER][uploading] Step0 " + record.fileName + " not exist ");
        row.SetStage("'File Not Exist'");
        row.Set(FILE_STATUS, std::int64_t{2});
        return BG_UPLOAD_STATUS_FILE_NOT_EXIST;
    }
    const std::int32_t unmeasured = Measure(file);
    if (unmeasured != 0) {
        return unmeasured;  // Kept: the row keeps the response of an earlier attempt, as for a missing file
    }
    lock = {};
    const std::int32_t code = SendToServer(file, ChunkSizeOf(chunkIndex));
    row.Set(FILE_SERVER_RESPONSE, Quoted(std::move(file.response)));
    row.SetStage("'uploading complete'");
    return code;
}

}  // namespace zorvalis
