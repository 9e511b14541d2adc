// What the server holds: records of the uploads in SQLite (records.db), received files in files/, the bytes of
// unfinished ones in parts/. It survives a kill at any moment: bytes are on disk before the record counts them, and
// counted before the client is answered. One thread at a time; raises std::runtime_error when the disk or SQLite fails.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;

namespace zorvalis {

struct Upload {
    std::string fileName;
    std::string checksum;  // MD5 of the whole file, as the client announced it
    std::int64_t size = 0;
    std::string uuid;
    std::int64_t held = 0;  // bytes from the start of the file that are on disk and counted
    bool finished = false;
};

class UploadStore {
public:
    // Makes the folder and what is missing in it. Raises when another process has the folder.
    explicit UploadStore(const std::filesystem::path& folder);
    ~UploadStore();
    UploadStore(const UploadStore&) = delete;
    UploadStore& operator=(const UploadStore&) = delete;

    // There is one record for each file name. Nothing also when somebody has removed the file from the folder.
    std::optional<Upload> FindByName(const std::string& fileName) const;
    std::optional<Upload> FindByUuid(const std::string& uuid) const;

    // Replaces the upload of that name by a new one. A file received earlier stays until the new one is finished.
    Upload Start(const std::string& fileName, const std::string& checksum, std::int64_t size);
    // Appends to the bytes held; they are on disk when it returns.
    void Append(const Upload& upload, std::string_view bytes);
    std::string Md5(const Upload& upload) const;
    // Moves the part to files/, over an older file of that name.
    void Finish(const Upload& upload);
    // Deletes the record and the part.
    void Discard(const Upload& upload);

private:
    std::optional<Upload> Find(const char* condition, const std::string& value) const;
    std::filesystem::path PartOf(const std::string& uuid) const { return folder_ / "parts" / uuid; }
    std::filesystem::path FileOf(const std::string& fileName) const { return folder_ / "files" / fileName; }
    void MoveToFiles(const Upload& upload) const;
    void TidyParts();

    std::filesystem::path folder_;
    int lock_ = -1;
    sqlite3* records_ = nullptr;
};

}  // namespace zorvalis
