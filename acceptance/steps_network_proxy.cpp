// Group 6: the proxy that an administrator sets for WinHTTP. Names under .test exist nowhere, so nothing but the proxy
// can lead to them.
#include "certificates.h"
#include "steps_network.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kHost[] = "zorv-acceptance.test";
constexpr char kBody[] = "{\"secret\": \"of this machine\"}";

std::string AddressOf(const LoopbackServer& proxy) {
    return "127.0.0.1:" + std::to_string(proxy.port());
}

}  // namespace

void PlainThroughProxy(Findings& findings) {
    const LoopbackServer proxy(0,
                               [](Connection& client, const Request&) { client.Write(HttpAnswer(200, "passed on")); });
    NeedListening(findings, proxy);
    const DefaultProxy set(findings, AddressOf(proxy));
    findings.ExpectText(Post(kHost, "/path", kBody, false).result, "passed on", "the answer comes from the proxy");
    const std::string asked = FirstLines(proxy);  // Wine names the port, too
    findings.Expect(asked == "POST http://zorv-acceptance.test/path HTTP/1.1" ||
                        asked == "POST http://zorv-acceptance.test:80/path HTTP/1.1",
                    "it was asked for the server's address: " + asked);
}

void TlsAsksProxy(Findings& findings) {
    const LoopbackServer proxy(0, [](Connection& client, const Request&) { client.Write(HttpAnswer(502, "no way")); });
    NeedListening(findings, proxy);
    const DefaultProxy set(findings, AddressOf(proxy));
    const Exchange exchange = Post(kHost, "/path", kBody, true);
    findings.ExpectText(exchange.result, kTransportError, "a proxy that knows no way is a failure");
    findings.Saw("status " + std::to_string(exchange.report.status) + ", error " +
                 std::to_string(exchange.report.error));
    findings.ExpectText(FirstLines(proxy), "CONNECT zorv-acceptance.test:443 HTTP/1.1", "what it was asked");
    bool told = false;
    for (const Request& request : proxy.heard()) {
        told = told || request.head.find("/path") != std::string::npos || !request.body.empty();
    }
    findings.Expect(!told, "the proxy hears neither the path nor the body");
}

void TlsThroughProxy(Findings& findings) {
    Authority authority;
    const OwnedCertificate right = authority.Issue(kHost, -2, 2);
    NeedTls(findings, right.get());
    authority.Trust();
    const OwnedCertificate wrong = authority.Issue("localhost", -2, 2);
    std::atomic<std::uint16_t> port{0};
    const LoopbackServer proxy(0, [&](Connection& client, const Request&) {
        client.Write("HTTP/1.1 200 Connected\r\n\r\n");
        LeadTo(client, port);
    });
    NeedListening(findings, proxy);
    const DefaultProxy set(findings, AddressOf(proxy));
    for (const bool named : {true, false}) {
        const LoopbackServer server(
            0, [](Connection& client, const Request&) { client.Write(HttpAnswer(200, "answer")); },
            (named ? right : wrong).get());
        NeedListening(findings, server);
        port = server.port();
        const Exchange exchange = Post(kHost, "/path", kBody, true);
        findings.Saw(FirstLines(proxy) + "; " + FirstLines(server) + "; error " +
                     std::to_string(exchange.report.error));
        if (named) {
            findings.ExpectText(exchange.result, "answer", "the answer comes through the proxy");
            findings.Expect(server.heard().size() == 1 && server.heard()[0].body == kBody,
                            "the server got the request");
        } else {
            findings.ExpectText(exchange.result, kTransportError, "behind the proxy a wrong name is refused, too");
            findings.ExpectNumber(exchange.report.error, ERROR_WINHTTP_SECURE_FAILURE, "with the error");
            findings.ExpectNumber(static_cast<long long>(server.bytes()), 0, "bytes of the request at the server");
        }
    }
}

}  // namespace zorvalis::acceptance
