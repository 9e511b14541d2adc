// The built zorvserver as a process, spoken to over HTTP: what it keeps and what it refuses.
#include <gtest/gtest.h>
#include <httplib.h>

#include <csignal>

#include "base/json.h"
#include "support/reference_server.h"

namespace zorvalis {
namespace {

class Server : public testing::Test {
protected:
    // One member of the answer.
    std::string Get(const char* key, const std::string& call, const Json& request = nullptr) const {
        httplib::Client client("127.0.0.1", server_.http);
        const std::string path = "/api/FS/" + call;
        const auto result =
            request.is_null() ? client.Get(path) : client.Post(path, request.dump(), "application/json");
        if (!result || result->status != 200) {
            return "no answer";
        }
        const Json value = ParseJson(result->body)[key];
        return value.is_string() ? value.get<std::string>() : value.dump();
    }
    // Five bytes, "01234".
    std::string Init(const char* key, const char* md5 = "4100c4d44da9177247e44a5fc1546778") const {
        return Get(key, "inituploadfile", {{"checksum", md5}, {"filename", "E_1.db"}, {"filesize", 5}});
    }
    std::string Chunk(const std::string& uuid, const char* base64, const char* md5) const {
        return Get("status", "uploadfilechunk", {{"checksum", md5}, {"filechunk", base64}, {"fileuuid", uuid}});
    }
    std::string First(const std::string& uuid) const {
        return Chunk(uuid, "MDEy", "d2490f048dc3b77a457e3e450ab4eb38");  // "012"
    }
    std::string Second(const std::string& uuid) const {
        return Chunk(uuid, "MzQ=", "e369853df766fa44e1ed0ff613f563bd");  // "34"
    }

    const TestMachine machine_;
    ReferenceServer server_{machine_};
    const std::string folder_ = server_.folder();
};

TEST_F(Server, TakesAFileAndResumesAfterAKill) {
    const std::string uuid = Init("fileuuid");
    EXPECT_EQ(Init("filesize"), "0");
    EXPECT_EQ(Chunk(uuid, "MDEy", "d2490f048dc3b77a457e3e450ab4eb39"), "CHUNK_CHECKSUM_MISMATCH");
    EXPECT_EQ(Chunk(uuid, "MD-y", "d2490f048dc3b77a457e3e450ab4eb38"), "BAD_BASE64");
    EXPECT_EQ(First(uuid), "OK");
    EXPECT_EQ(server_.end(SIGKILL), -SIGKILL);
    write_text(folder_ + "data/parts/" + uuid, "012 and what was not counted");
    server_.begin();
    EXPECT_EQ(Init("fileuuid") + Init("filesize"), uuid + "3");
    EXPECT_EQ(First(uuid), "BEYOND_SIZE");
    EXPECT_EQ(Get("status", "finishupload/" + uuid), "SIZE_MISMATCH");
    EXPECT_EQ(Second(uuid), "OK");
    EXPECT_EQ(Get("status", "finishupload/" + uuid), "OK");
    EXPECT_EQ(read_text(folder_ + "data/files/E_1.db"), "01234");
    EXPECT_EQ(Second(uuid), "ALREADY_FINISHED");
    EXPECT_EQ(Init("status"), "UPLOAD_FINISHED");
    // Another content under the same name: the old file stays, the next try begins anew.
    const std::string other = Init("fileuuid", "4100c4d44da9177247e44a5fc1546779");
    EXPECT_EQ(First(other), "OK");
    EXPECT_EQ(Second(other), "OK");
    EXPECT_EQ(Get("status", "finishupload/" + other), "CHECKSUM_MISMATCH");
    EXPECT_EQ(read_text(folder_ + "data/files/E_1.db"), "01234");
    EXPECT_EQ(Init("filesize", "4100c4d44da9177247e44a5fc1546779"), "0");
}

}  // namespace
}  // namespace zorvalis
