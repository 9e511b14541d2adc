// The steps of an HTTP exchange on the stand-in machine, each with what a server may do to it.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <functional>

#include "platform/error.h"
#include "platform/http.h"
#include "platform/linux/machine_file.h"
#include "platform/machine.h"
#include "support/loopback_server.h"
#include "support/machine.h"

namespace platform {
namespace {

constexpr char kHost[] = "files.test.example";

struct Call {
    const wchar_t* path = L"/path";
    std::string body = {};
    std::int32_t timeout = 30000;
    const wchar_t* host = L"files.test.example";
    bool secure = false;
};

bool is_sent(HttpExchange& http, const Call& call) {
    const bool post = !call.body.empty();
    http.set_timeouts(30000, call.timeout, call.timeout, call.timeout);
    return http.open(L"agent/1.0") && http.connect(call.host, 80) &&
           http.open_request(post ? L"POST" : L"GET", call.path, call.secure) &&
           http.send(post ? L"Content-Type: text/plain" : nullptr, call.body);
}

// The status and what came of the body, or the step that failed with its error.
std::string outcome(const Call& call = {}) {
    HttpExchange http;
    std::wstring status;
    std::uint32_t size = 0;
    if (!is_sent(http, call)) {
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

LoopbackServer::Handler by_hand(std::function<void(const LoopbackConnection&)> answer) {
    return [=](const LoopbackRequest&) { return LoopbackAnswer{0, "", false, answer}; };
}

// A port of the loopback at which nothing listens, or at which nothing that comes is ever read.
class DeadPort {
public:
    explicit DeadPort(bool listens) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        auto* const name = reinterpret_cast<sockaddr*>(&address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(socket_.get(), name, length) | ::getsockname(socket_.get(), name, &length), 0);
        EXPECT_TRUE(!listens || ::listen(socket_.get(), 1) == 0);
        address_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    void stand_for(const std::string& host) const {
        write_text(machine_path("network.json"), R"({"hosts": {")" + host + R"(:80": ")" + address_ + "\"}}");
    }

private:
    Descriptor socket_;
    std::string address_;
};

TEST(HttpExchange, SendsWhatItIsGivenAndNoMore) {
    const TestMachine machine;
    std::string received;
    const LoopbackServer server([&](const LoopbackRequest& request) {
        received = request.head.substr(0, request.head.find('\r')) + "|" + request.body;
        for (const char* each : {"\r\nHost: files.test.example\r\n", "\r\nUser-Agent: agent/1.0\r\n",
                                 "\r\nContent-Type: text/plain\r\n", "\r\nExpect", "\r\nAccept", "\r\nContent-Type"}) {
            received += (request.head + "\r\n").find(each) != std::string::npos ? '1' : '0';
        }
        return LoopbackAnswer{200, "done"};
    });
    server.stand_for(kHost);
    const std::string large(1 << 20, 'x');
    EXPECT_EQ(outcome(), "200 done end");
    EXPECT_EQ(received, "GET /path HTTP/1.1|110000");
    EXPECT_EQ(outcome({L"", large}), "200 done end");
    EXPECT_EQ(received, "POST / HTTP/1.1|" + large + "111001");
    EXPECT_EQ(outcome({L"/a b/../\u00e4\r\nX: #?q=%41"}), "200 done end");
    EXPECT_EQ(received, "GET /a%20b/../%C3%A4%0D%0AX:%20#?q=%41 HTTP/1.1|110000");
}

TEST(HttpExchange, EndsAtTheStepThatTheServerSpoils) {
    const struct {
        const char* name;
        std::string answer;
        std::string outcome;
    } cases[] = {
        {"length", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbodyand more", "200 body end"},
        {"empty", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "200  end"},
        {"nothing to send", "HTTP/1.1 204 None\r\n\r\n", "204  end"},
        {"error", "HTTP/1.1 500 Oops\r\nContent-Length: 4\r\n\r\nbody", "500 body end"},
        {"elsewhere", "HTTP/1.1 301 Gone\r\nLocation: /other\r\nContent-Length: 4\r\n\r\nbody", "301 body end"},
        {"interim answers",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 102 Wait\r\nA: b\r\n\r\nHTTP/1.1 404 No\r\nContent-Length: 1\r\n\r\nx",
         "404 x end"},
        {"an interim answer alone", "HTTP/1.1 100 Continue\r\n\r\n", "receive 12030"},
        {"chunks",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nbod\r\n1\r\ny\r\n0\r\nHTTP/1.1: 5 4\r\n\r\n",
         "200 body end"},
        {"until it closes", "HTTP/1.1 200 OK\r\n\r\nbody", "200 body end"},
        {"NUL", std::string("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\na\0b", 41), std::string("200 a\0b end", 11)},
        {"cut in the body", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbody", "200 body body 12030"},
        {"cut in a chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n9\r\nbody", "200 body body 12030"},
        {"cut before the body", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n", "200  body 12030"},
        {"cut in the head", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n", "receive 12030"},
        {"cut before the length", "HTTP/1.1 200 OK\r\nA: b\r\n", "receive 12152"},
        {"nothing", "", "receive 12030"},
        {"no HTTP", "\x15\x03\x01 is not an answer\r\n\r\n", "receive 12152"},
    };
    const TestMachine machine;
    for (const auto& each : cases) {
        const LoopbackServer server(by_hand([&](const auto& connection) { connection.send(each.answer); }));
        server.stand_for(kHost);
        EXPECT_EQ(outcome(), each.outcome) << each.name;
        EXPECT_EQ(outcome({L"/", "sent"}), each.outcome) << each.name;
    }
    EXPECT_EQ(outcome({L"/", "", 30000, L"unknown.test.example"}), "send 12007");
    const DeadPort port(false);
    port.stand_for(kHost);
    EXPECT_EQ(outcome(), "send 12029");
    write_text(machine_path("network.json"),
               R"({"online": false, "hosts": {"files.test.example:80": "127.0.0.1:80"}})");
    EXPECT_EQ(outcome(), "send 12007");
    EXPECT_FALSE(is_online());
    HttpExchange http;
    EXPECT_FALSE(is_sent(http, {}) || http.receive());
    EXPECT_EQ(last_error(), kErrorIncorrectHandleState);
}

TEST(HttpExchange, GivesEachStepItsOwnTime) {
    constexpr std::int32_t kSoon = 50;
    const TestMachine machine;
    const std::pair<std::string, std::string> answers[] = {
        {"", "receive 12002"}, {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbody", "200 body body 12002"}};
    for (const auto& [answer, expected] : answers) {
        const LoopbackServer server(by_hand([text = answer](const auto& connection) {
            connection.send(text);
            connection.wait_for_close();
        }));
        server.stand_for(kHost);
        EXPECT_EQ(outcome({L"/", "", kSoon}), expected);
    }
    const DeadPort port(true);
    port.stand_for(kHost);
    EXPECT_EQ(outcome({L"/", std::string(16 << 20, 'x'), kSoon}), "send 12002");
    EXPECT_EQ(outcome({L"/", "", kSoon, L"files.test.example", true}), "send 12002") << "the handshake";
}

}  // namespace
}  // namespace platform
