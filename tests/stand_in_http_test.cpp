// The steps of an HTTP exchange on the stand-in machine, each with what a server may do to it.
#include <gtest/gtest.h>

#include "platform/error.h"
#include "platform/http.h"
#include "support/loopback_server.h"
#include "support/machine.h"

namespace platform {
namespace {

constexpr char kHost[] = "files.test.example";

// The status and what came of the body, or the step that failed with its error.
std::string outcome(std::int32_t timeout = 30000) {
    HttpExchange http;
    std::wstring status;
    std::uint32_t size = 0;
    http.set_timeouts(30000, timeout, timeout, timeout);
    if (!http.open(L"agent/1.0") || !http.connect(L"files.test.example", 80) ||
        !http.open_request(L"POST", L"/path", false) || !http.send(L"Content-Type: text/plain", "sent")) {
        return "send " + std::to_string(last_error());
    }
    if (!http.receive() || !http.query_status(status)) {
        return "receive " + std::to_string(last_error());
    }
    std::string result = std::string(status.begin(), status.end()) + " ";
    while (http.query_available(size)) {
        if (size == 0) {
            return result + " end";
        }
        std::string piece(size, '\0');
        EXPECT_TRUE(http.read(piece.data(), size, size));
        result.append(piece, 0, size);
    }
    return result + " body " + std::to_string(last_error());
}

TEST(HttpExchange, EndsAtTheStepThatTheServerSpoils) {
    const struct {
        const char* name;
        std::string answer;
        std::string outcome;
        bool hangs = false;
    } cases[] = {
        {"length", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbodyand more", "200 body end"},
        {"interim answer", "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 404 No\r\nContent-Length: 1\r\n\r\nx", "404 x end"},
        {"chunks",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nbod\r\n1\r\ny\r\n0\r\nHTTP/1.1: 5 4\r\n\r\n",
         "200 body end"},
        {"until it closes", "HTTP/1.1 200 OK\r\n\r\nbody", "200 body end"},
        {"cut in the body", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbody", "200 body body 12030"},
        {"cut in the head", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n", "receive 12030"},
        {"no HTTP", "\x15\x03\x01 is not an answer\r\n\r\n", "receive 12152"},
        {"nothing for too long", "", "receive 12002", true},
        {"half a body for too long", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbody", "200 body body 12002", true},
    };
    const TestMachine machine;
    EXPECT_EQ(outcome(), "send 12007") << "an unknown host";
    for (const auto& each : cases) {
        const auto answer = [&](const LoopbackConnection& connection) {
            connection.send(each.answer);
            if (each.hangs) {
                connection.wait_for_close();
            }
        };
        const LoopbackServer server([&](const LoopbackRequest&) { return LoopbackAnswer{0, "", false, answer}; });
        server.stand_for(kHost);
        EXPECT_EQ(outcome(each.hangs ? 50 : 30000), each.outcome) << each.name;
    }
}

}  // namespace
}  // namespace platform
