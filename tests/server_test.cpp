// The built zorvserver as a process, spoken to over HTTP: what it keeps, what it refuses, how it misbehaves.
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>

#include "common/json.h"
#include "support/reference_server.h"

namespace zorvalis {
namespace {

class Server : public testing::Test {
protected:
    // The body of a 200 answer, else the status in words, or "no answer".
    std::string Plain(const std::string& call, const std::string& body = "") const {
        httplib::Client client("127.0.0.1", server_.http);
        client.set_read_timeout(60);
        const std::string path = "/api/FS/" + call;
        const httplib::Result result = body.empty() ? client.Get(path) : client.Post(path, body, "application/json");
        return !result ? "no answer" : result->status != 200 ? std::to_string(result->status) : result->body;
    }
    // One member of the answer.
    std::string Get(const char* key, const std::string& call, const Json& request = nullptr) const {
        const std::string body = Plain(call, request.is_null() ? "" : request.dump());
        if (body[0] != '{') {
            return body;
        }
        const Json value = ParseJson(body)[key];
        return value.is_string() ? value.get<std::string>() : value.dump();
    }
    // Five bytes, "01234", registered as a file of `size`.
    std::string Init(const char* key, int size = 5, const char* md5 = "4100c4d44da9177247e44a5fc1546778",
                     const char* name = "E_1.db") const {
        return Get(key, "inituploadfile", {{"checksum", md5}, {"filename", name}, {"filesize", size}});
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
    const std::string folder_ = server_.folder(), script_ = folder_ + "script";
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
    const std::string other = Init("fileuuid", 5, "4100c4d44da9177247e44a5fc1546779");
    EXPECT_EQ(First(other), "OK");
    EXPECT_EQ(Second(other), "OK");
    EXPECT_EQ(Get("status", "finishupload/" + other), "CHECKSUM_MISMATCH");
    EXPECT_EQ(read_text(folder_ + "data/files/E_1.db"), "01234");
    EXPECT_EQ(Init("filesize", 5, "4100c4d44da9177247e44a5fc1546779"), "0");
}

TEST_F(Server, RefusesWhatIsNoRequest) {
    EXPECT_EQ(Plain("query", "{\"clientversion\": 2}"), "{\"status\":\"BAD_REQUEST\"}");
    EXPECT_EQ(Plain("inituploadfile", std::string((1 << 20) + 1, ' ')), "413");
    EXPECT_EQ(Plain("uploadfilechunk"), "404");
    for (const char* name : {"", "..", "a/b"}) {
        EXPECT_EQ(Init("status", 5, "4100c4d44da9177247e44a5fc1546778", name), "BAD_FILENAME") << name;
    }
    EXPECT_EQ(Get("status", "query", {{"clientversion", ".."}, {"modelname", "Model 7"}}), "NO_SETTING");
    const std::string again = server_.tool + " --cert x --key x --data " + folder_ + "data 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(again.c_str())), 1) << "two servers on one folder";
    EXPECT_EQ(WEXITSTATUS(std::system((server_.tool + " --nonsense 2>/dev/null").c_str())), 2);
}

TEST_F(Server, MisbehavesByItsScript) {
    Init("fileuuid");
    const struct {
        const char *fault, *answer;  // its beginning
        int held;                    // after a chunk of three bytes on an upload that holds none
    } cases[] = {
        {"\"status\", \"code\": 500", "500", 0},
        {"\"body\", \"text\": \"err\"", "err", 0},
        {"\"drop\"", "no answer", 0},
        {"\"half\"", "no answer", 3},
        {"\"slow\", \"ms\": 1", "{\"status\":\"OK\"}", 3},
    };
    int number = 10;
    for (const auto& each : cases) {
        const std::string md5 = "4100c4d44da9177247e44a5fc15467" + std::to_string(number++);
        const Json chunk = {{"checksum", "d2490f048dc3b77a457e3e450ab4eb38"},
                            {"filechunk", "MDEy"},
                            {"fileuuid", Init("fileuuid", 5, md5.c_str())}};
        write_text(script_, std::string("{\"call\": \"uploadfilechunk\", \"do\": ") + each.fault + "}\n");
        const std::string answer = Plain("uploadfilechunk", chunk.dump());
        EXPECT_EQ(answer.substr(0, std::strlen(each.answer)), each.answer) << each.fault;
        EXPECT_EQ(Init("filesize", 5, md5.c_str()), std::to_string(each.held)) << each.fault;
    }
    write_text(script_, "{\"call\": \"inituploadfile\", \"nth\": 2, \"do\": \"offset\", \"offset\": 99}\n");
    EXPECT_EQ(Plain("query", "{}"), "{\"status\":\"BAD_REQUEST\"}");
    EXPECT_EQ(Init("filesize"), "0");
    EXPECT_EQ(Init("filesize"), "99");
    // A stop does not wait for a slow answer.
    write_text(script_, "{\"do\": \"slow\", \"ms\": 3600000}");
    std::thread client([this] { EXPECT_EQ(Plain("query", "{}"), "no answer"); });
    while (!read_text(script_).empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(server_.end(SIGINT), 0);
    client.join();
    server_.begin();
}

}  // namespace
}  // namespace zorvalis
