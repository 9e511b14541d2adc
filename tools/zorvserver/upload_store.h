// What the server holds: records of the uploads in SQLite (records.db), received files in files/, the bytes of those
// still on their way in parts/. All of it survives a kill at any moment: bytes are on disk before they are counted, and
// counted before anyone hears of it. One thread at a time; raises std::runtime_error when the disk or SQLite fails.
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
    std::string checksum;  // of the whole file
    std::int64_t size = 0;
    std::string uuid;
    std::int64_t held = 0;  // the bytes from the start that are safe here
    bool finished = false;
};

class UploadStore {
public:
    // Makes what is missing. Only one process at a time may have the folder.
    explicit UploadStore(const std::filesystem::path& folder);
    ~UploadStore();
    UploadStore(const UploadStore&) = delete;
    UploadStore& operator=(const UploadStore&) = delete;

    // There is one record for a file name. One whose bytes somebody removed from the folder counts as none.
    std::optional<Upload> FindByName(const std::string& fileName) const;
    std::optional<Upload> FindByUuid(const std::string& uuid) const;

    // A new upload in place of the one that had the name; a file received earlier stays until this one is finished.
    Upload Start(const std::string& fileName, const std::string& checksum, std::int64_t size);
    void Append(const Upload& upload, std::string_view bytes);
    std::string Md5(const Upload& upload) const;
    // Makes the part the received file of that name.
    void Finish(const Upload& upload);
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
