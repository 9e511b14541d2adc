#include "support/file_server.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>

#include "common/deployment.h"
#include "store/db_file.h"
#include "support/notebook.h"
#include "upload/chunk_hash.h"
#include "upload/file_status.h"
#include "upload/status_cycle.h"

namespace {

using namespace zorvalis;

std::string Md5Of(const std::string& bytes) {
    const std::string path = std::string(kProductFolder) + "hashed";
    write_text(path, bytes);
    std::optional<std::string> md5;
    createMD5forFile(path, md5);
    return md5 ? *md5 : "";
}

std::string Decoded(const std::string& text) {
    const std::string path = std::string(kProductFolder) + "decoded";
    write_text(path, text);
    return base64_FileDecode(path);
}

// An upload writes its row a dozen times; that each write reaches the disk takes most of a test's time.
int DoWithoutFlushes(sqlite3* db, char**, const sqlite3_api_routines*) {
    sqlite3_exec(db, "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
    return SQLITE_OK;
}

}  // namespace

FileServer::FileServer() : server_([this](const LoopbackRequest& request) { return Handle(request); }) {
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(DoWithoutFlushes));
    CreateSqliteDBFolder();
    server_.stand_for(deployment::TestServer);
    SetValue(L"BGSERVER_URL", WidenBytes(deployment::TestServer));
}

FileServer::~FileServer() {
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(DoWithoutFlushes));
}

void FileServer::reset() {
    faults.clear();
    files.clear();
    calls.clear();
    offset.clear();
}

LoopbackAnswer FileServer::Handle(const LoopbackRequest& request) {
    const auto fault = faults.find(calls.size());
    calls.push_back(request.path);
    body = request.body;
    if (fault == faults.end()) {
        return {200, Answer(request.path, request.body), false};
    }
    if (fault->second.late) {
        Answer(request.path, request.body);
    }
    return {fault->second.status, fault->second.body, fault->second.cut};
}

// The identifier of an upload is "id-" and the file's name.
std::string FileServer::Answer(const std::string& path, const std::string& text) {
    const Json request = text.empty() ? Json() : ParseJson(text);
    if (path == "/api/FS/query") {
        return setting;
    }
    if (path == "/api/FS/inituploadfile") {
        const std::string name = request["filename"];
        File& file = files[name];
        file.md5 = request["checksum"];
        file.size = request["filesize"];
        const std::string held = offset.empty() ? std::to_string(file.bytes.size()) : offset;
        return file.finished ? Status("UPLOAD_FINISHED")
                             : R"({"filesize":)" + held + R"(,"fileuuid":"id-)" + name + R"(","status":"OK"})";
    }
    if (path == "/api/FS/uploadfilechunk") {
        const std::string chunk = Decoded(request["filechunk"]);
        files.at(std::string(request["fileuuid"]).substr(3)).bytes += chunk;
        return Status(Md5Of(chunk) == request["checksum"] ? "OK" : "BAD CHUNK");
    }
    File& file = files.at(path.substr(std::string("/api/FS/finishupload/id-").size()));
    file.finished = file.bytes.size() == file.size && Md5Of(file.bytes) == file.md5;
    return Status(file.finished ? "OK" : "INCOMPLETE");
}

std::string Status(const std::string& word) {
    return R"({"status":")" + word + "\"}";
}

void Register(const std::string& name, std::int32_t type, const std::string& date) {
    BG_FILESTATUS_CONTROLLER controller;
    ASSERT_TRUE(controller.fopenDB(kStatusDb));
    controller.setFileName(name);
    controller.setFileType(type);
    controller.setFileCreateDate(date);
    controller.commit();
}

void ChangeRows(const std::string& sql) {
    const StatusCycle cycle(kStatusDb);
    ASSERT_TRUE(cycle.IsOpen());
    ASSERT_EQ(sqlite3_exec(cycle.Connection(), sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
}

void BlockStatusDb(bool blocked) {
    const std::string copy = std::string(kDataFolder) + kStatusDb + ".cached";
    ASSERT_TRUE(blocked ? platform::create_folder(copy) : std::filesystem::remove(platform::native_path(copy)));
}
