// The four HTTP calls against a server that ends its answer too early, or never.
#include "upload/http_client.h"

#include <gtest/gtest.h>

#include "common/deployment.h"
#include "platform/machine.h"
#include "support/loopback_server.h"
#include "support/machine.h"
#include "support/traced.h"

namespace zorvalis {
namespace {

TEST(HttpCalls, ReturnWhatCouldBeReadOfABody) {
    const char* const host = deployment::TestServer;
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n", body = "body", result;
    bool endless = false;
    std::size_t sent = 0;
    const auto answer = [&](const LoopbackConnection& connection) {
        for (bool heard = connection.send(head + body); heard && endless && sent < 6 * body.size();
             heard = connection.send(body)) {
            sent += body.size();
        }
    };
    const TestMachine machine;
    const LoopbackServer server([&](const LoopbackRequest&) { return LoopbackAnswer{0, "", false, answer}; });
    server.stand_for(host);
    const auto errors = [&](const std::function<std::string()>& call) {
        std::string steps;
        for (const std::string& line : Traced([&] { result = call(); })) {
            steps += line.find(" Error: ") != std::string::npos ? line.substr(0, line.find(" Error: ")) : "";
        }
        return steps;
    };
    const std::function<std::string()> calls[] = {
        [&] { return HttpGet(host, "/", 9999, 9999, 9999); },
        [&] { return HttpSSLGet(host, "/", 9999, 9999, 9999); },
        [&] { return HttpPost(host, "/", "", 1, 9999, 9999, 9999); },
        [&] { return HttpSSLPost(host, "/", "", 1, 9999, 9999, 9999); },
    };
    for (const auto& call : calls) {
        const std::string steps = errors(call);
        EXPECT_TRUE(steps.starts_with(&call < calls + 2 ? "[HttpGet][WinHttp" : "[HttpPost][WinHttp") ||
                    platform::machine_folder().empty());  // Wine takes it for the end
        EXPECT_EQ(result, "body");
    }
    LoopbackServer::settle();
    head = "HTTP/1.1 200 OK\r\n\r\n";
    body = std::string(16 << 20, 'x');
    EXPECT_TRUE(calls[0]() == body) << "the longest";
    LoopbackServer::settle();
    endless = true;
    EXPECT_EQ(errors(calls[0]), "[HttpGet][WinHttpReadData]");
    EXPECT_TRUE(result == body);
    LoopbackServer::settle();
    EXPECT_LT(sent, 2 * body.size()) << "the rest is not taken either";
}

}  // namespace
}  // namespace zorvalis
