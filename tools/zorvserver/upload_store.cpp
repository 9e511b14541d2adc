// The store's SQLite records and files. Order makes it safe against a kill: sync the bytes, then write the record.
#include "upload_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "encoding.h"

namespace zorvalis {

namespace {

namespace fs = std::filesystem;

constexpr char kTables[] =
    "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
    "CREATE TABLE IF NOT EXISTS uploads (filename TEXT PRIMARY KEY, checksum TEXT NOT NULL, size INTEGER NOT NULL,"
    " uuid TEXT NOT NULL UNIQUE, held INTEGER NOT NULL DEFAULT 0, chunks INTEGER NOT NULL DEFAULT 0,"
    " finished INTEGER NOT NULL DEFAULT 0, started TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP,"
    " changed TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP)";

class Statement {
public:
    Statement(sqlite3* db, const std::string& sql) : db_(db) {
        Check(sqlite3_prepare_v2(db, sql.c_str(), -1, &it_, nullptr));
    }
    ~Statement() { sqlite3_finalize(it_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& Bind(const std::string& text) {
        Check(sqlite3_bind_text(it_, ++bound_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
        return *this;
    }
    Statement& Bind(std::int64_t number) {
        Check(sqlite3_bind_int64(it_, ++bound_, number));
        return *this;
    }
    // True when there is a row.
    bool Step() {
        const int result = sqlite3_step(it_);
        Check(result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result);
        return result == SQLITE_ROW;
    }
    std::string Text(int column) const {
        const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(it_, column));
        return text != nullptr ? text : "";
    }
    std::int64_t Number(int column) const { return sqlite3_column_int64(it_, column); }

private:
    void Check(int result) const {
        if (result != SQLITE_OK) {
            throw std::runtime_error(std::string("records.db: ") + sqlite3_errmsg(db_));
        }
    }
    sqlite3* db_;
    sqlite3_stmt* it_ = nullptr;
    int bound_ = 0;
};

void Check(bool holds, const fs::path& path) {
    if (!holds) {
        throw std::runtime_error(path.string() + ": " + std::strerror(errno));
    }
}

class Descriptor {
public:
    Descriptor(const fs::path& path, int flags) : path_(path), it_(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {
        Check(it_ >= 0, path);
    }
    ~Descriptor() { ::close(it_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    void CutTo(std::int64_t size) const { Check(::ftruncate(it_, size) == 0, path_); }
    void Append(std::string_view bytes, std::int64_t offset) const {
        while (!bytes.empty()) {
            const ssize_t written = ::pwrite(it_, bytes.data(), bytes.size(), offset);
            Check(written > 0, path_);
            bytes.remove_prefix(static_cast<std::size_t>(written));
            offset += written;
        }
    }
    void Sync() const { Check(::fsync(it_) == 0, path_); }

private:
    fs::path path_;
    int it_;
};

// Makes new and renamed entries of the folder durable.
void SyncFolder(const fs::path& folder) {
    Descriptor(folder, O_RDONLY | O_DIRECTORY).Sync();
}

}  // namespace

UploadStore::UploadStore(const fs::path& folder) : folder_(folder) {
    fs::create_directories(folder / "files");
    fs::create_directories(folder / "parts");
    lock_ = ::open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    Check(lock_ >= 0, folder / "lock");
    try {
        if (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
            throw std::runtime_error(folder.string() + " is in use by another server");
        }
        if (sqlite3_open((folder / "records.db").c_str(), &records_) != SQLITE_OK ||
            sqlite3_exec(records_, kTables, nullptr, nullptr, nullptr) != SQLITE_OK) {
            throw std::runtime_error((folder / "records.db").string() + ": " + sqlite3_errmsg(records_));
        }
        TidyParts();
    } catch (...) {
        sqlite3_close(records_);
        ::close(lock_);
        throw;
    }
}

UploadStore::~UploadStore() {
    sqlite3_close(records_);
    ::close(lock_);
}

std::optional<Upload> UploadStore::Find(const char* condition, const std::string& value) const {
    Statement statement(records_, std::string("SELECT filename, checksum, size, uuid, held, finished FROM uploads "
                                              "WHERE ") +
                                      condition);
    if (!statement.Bind(value).Step()) {
        return std::nullopt;
    }
    Upload upload{statement.Text(0), statement.Text(1),   statement.Number(2),
                  statement.Text(3), statement.Number(4), statement.Number(5) != 0};
    std::error_code missing;
    const auto there = fs::file_size(upload.finished ? FileOf(upload.fileName) : PartOf(upload.uuid), missing);
    const auto bytes = static_cast<std::int64_t>(there);
    if (missing || (upload.finished && bytes != upload.size)) {
        return std::nullopt;
    }
    upload.held = std::min(upload.held, bytes);
    return upload;
}

std::optional<Upload> UploadStore::FindByName(const std::string& fileName) const {
    return Find("filename = ?", fileName);
}

std::optional<Upload> UploadStore::FindByUuid(const std::string& uuid) const {
    return Find("uuid = ?", uuid);
}

Upload UploadStore::Start(const std::string& fileName, const std::string& checksum, std::int64_t size) {
    const Upload upload{fileName, checksum, size, NewUuid()};
    Descriptor(PartOf(upload.uuid), O_WRONLY | O_CREAT | O_EXCL).Sync();
    SyncFolder(folder_ / "parts");
    Statement(records_, "INSERT OR REPLACE INTO uploads (filename, checksum, size, uuid) VALUES (?, ?, ?, ?)")
        .Bind(fileName)
        .Bind(checksum)
        .Bind(size)
        .Bind(upload.uuid)
        .Step();
    TidyParts();
    return upload;
}

void UploadStore::Append(const Upload& upload, std::string_view bytes) {
    const Descriptor part(PartOf(upload.uuid), O_WRONLY);
    part.CutTo(upload.held);  // removes what a killed server wrote but did not count
    part.Append(bytes, upload.held);
    part.Sync();
    Statement(records_, "UPDATE uploads SET held = ?, chunks = chunks + 1, changed = CURRENT_TIMESTAMP WHERE uuid = ?")
        .Bind(upload.held + static_cast<std::int64_t>(bytes.size()))
        .Bind(upload.uuid)
        .Step();
}

std::string UploadStore::Md5(const Upload& upload) const {
    std::ifstream part(PartOf(upload.uuid), std::ios::binary);
    Check(part.is_open(), PartOf(upload.uuid));
    return Md5OfText(std::string(std::istreambuf_iterator<char>(part), {}));
}

void UploadStore::Finish(const Upload& upload) {
    Statement(records_, "UPDATE uploads SET finished = 1, changed = CURRENT_TIMESTAMP WHERE uuid = ?")
        .Bind(upload.uuid)
        .Step();
    MoveToFiles(upload);
}

void UploadStore::MoveToFiles(const Upload& upload) const {
    fs::rename(PartOf(upload.uuid), FileOf(upload.fileName));
    SyncFolder(folder_ / "files");
}

void UploadStore::Discard(const Upload& upload) {
    Statement(records_, "DELETE FROM uploads WHERE uuid = ?").Bind(upload.uuid).Step();
    fs::remove(PartOf(upload.uuid));
}

// A part without a record belongs to an upload that was replaced, and is deleted. A part of a finished upload was left
// by a kill before its move, which is made now.
void UploadStore::TidyParts() {
    std::vector<std::string> uuids;
    for (const auto& entry : fs::directory_iterator(folder_ / "parts")) {
        uuids.push_back(entry.path().filename().string());
    }
    for (const std::string& uuid : uuids) {
        Statement statement(records_, "SELECT filename, finished FROM uploads WHERE uuid = ?");
        if (!statement.Bind(uuid).Step()) {
            fs::remove(PartOf(uuid));
        } else if (statement.Number(1) != 0) {
            MoveToFiles({statement.Text(0), "", 0, uuid});
        }
    }
}

}  // namespace zorvalis
