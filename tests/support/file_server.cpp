#include "support/file_server.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>

#include "common/deployment.h"
#include "store/db_file.h"
#include "support/notebook.h"
#include "upload/file_status.h"
#include "upload/status_cycle.h"

namespace {

using namespace zorvalis;

// Of its own: the product's logs what it does.
std::string Decoded(const std::string& base64) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t group = 0;
    int bits = 0;
    for (std::size_t at = 0; at < base64.size() && base64[at] != '='; ++at) {
        group = group << 6 | static_cast<std::uint32_t>(alphabet.find(base64[at]));
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits);
        }
    }
    return bytes;
}

// An upload writes its row a dozen times; that each write reaches the disk takes most of a test's time.
int DoWithoutFlushes(sqlite3* db, char**, const sqlite3_api_routines*) {
    sqlite3_exec(db, "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
    return SQLITE_OK;
}

std::vector<std::string>* executed = nullptr;

int NoteStatement(unsigned, void*, void* statement, void*) {
    const std::string sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
    if (sql.find("FILESTATUS") != std::string::npos) {
        executed->push_back(sql);
    }
    return 0;
}

int TraceStatements(sqlite3* db, char**, const sqlite3_api_routines*) {
    return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, NoteStatement, nullptr);
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
        files.at(std::string(request["fileuuid"]).substr(3)).bytes += Decoded(request["filechunk"]);
        return Status("OK");
    }
    File& file = files.at(path.substr(std::string("/api/FS/finishupload/id-").size()));
    file.finished = file.bytes.size() == file.size;
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

std::vector<std::string> Executed(const std::function<void()>& action) {
    std::vector<std::string> statements;
    executed = &statements;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(TraceStatements));
    action();
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(TraceStatements));
    return statements;
}

void BlockStatusDb(bool blocked) {
    const std::string copy = std::string(kDataFolder) + kStatusDb + ".cached";
    ASSERT_TRUE(blocked ? platform::create_folder(copy) : std::filesystem::remove(platform::native_path(copy)));
}
