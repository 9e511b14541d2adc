// Group 6: TLS, on port 443 of this machine.
#include "certificates.h"
#include "kit.h"
#include "process.h"
#include "status_text.h"
#include "steps_network.h"
#include "trace_session.h"

namespace zorvalis::acceptance {
namespace {

constexpr std::uint16_t kPort = 443;
constexpr char kHost[] = "localhost";
constexpr char kBody[] = "{\"secret\": \"of this machine\"}";
constexpr char kAnswer[] = "{\"answer\": 1}";

struct ServerCase {
    bool trusted = true;
    const char* name = kHost;
    int fromDay = -2;
    int toDay = 2;
    HRESULT verdict = S_OK;  // of Windows' own check; without one a client has to take it
};

void NeedVerdict(Findings& findings, PCCERT_CONTEXT certificate, HRESULT wanted) {
    const HRESULT verdict = VerdictOf(certificate, kHost);
    // A chain that does not come to an end is, in Windows' words, also one that ends at an untrusted authority.
    const bool isUntrusted = wanted == CERT_E_CHAINING && verdict == CERT_E_UNTRUSTEDROOT;
    if (verdict != wanted && !isUntrusted) {
        findings.Fail("the kit's certificate is as the step wants it: Windows says " + StatusText(verdict));
    }
    findings.Saw("Windows' own check of the certificate says " + StatusText(verdict));
}

void SawHandshakes(Findings& findings, const LoopbackServer& server) {
    for (const long status : server.handshakes()) {
        findings.Saw("a handshake at the server ended with " + StatusText(static_cast<std::int32_t>(status)));
    }
}

void ExpectAccepted(Findings& findings, const LoopbackServer& server, const Exchange& exchange) {
    findings.ExpectText(exchange.result, kAnswer, "the answer comes back");
    findings.ExpectNumber(exchange.report.error, 0, "without an error");
    const std::vector<Request> heard = server.heard();
    findings.Expect(heard.size() == 1 && heard[0].body == kBody, "the server got the request, once and whole");
    findings.Expect(heard.size() == 1 && heard[0].firstLine() == "POST /api/FS/query HTTP/1.1", "as it was made");
    findings.Expect(exchange.HasLine("[HttpSSLPost][ResponseCode] Error: 200"), "and the log has its status");
}

void ExpectRefused(Findings& findings, const LoopbackServer& server, const Exchange& exchange) {
    findings.ExpectText(exchange.result, kTransportError, "the result");
    findings.Expect(exchange.report.failed == HttpStep::send, "sending fails");
    findings.ExpectNumber(exchange.report.error, ERROR_WINHTTP_SECURE_FAILURE, "with the error");
    findings.ExpectNumber(static_cast<long long>(server.bytes()), 0, "bytes of the request at the server");
    findings.Expect(exchange.HasLine("[HttpSSLPost][WinHttpSendRequest] Error has occurred: 12175"), "the log says so");
    findings.Expect(exchange.HasLine("[HttpSSLPost][WinHttpReceiveResponse] Error has occurred: "),
                    "and that no answer can be waited for");
}

void Try(Findings& findings, const ServerCase& one) {
    const DefaultProxy none(findings, "");
    Authority authority;
    const OwnedCertificate certificate = authority.Issue(one.name, one.fromDay, one.toDay);
    NeedTls(findings, certificate.get());
    if (one.trusted) {
        authority.Trust();
    }
    NeedVerdict(findings, certificate.get(), one.verdict);
    const LoopbackServer server(
        kPort, [](Connection& client, const Request&) { client.Write(HttpAnswer(200, kAnswer)); }, certificate.get());
    NeedListening(findings, server);
    const Exchange exchange = Post(kHost, "/api/FS/query", kBody, true);
    SawHandshakes(findings, server);
    for (const std::string& line : exchange.lines) {
        findings.Saw("log: " + line);
    }
    (one.verdict == S_OK ? ExpectAccepted : ExpectRefused)(findings, server, exchange);
}

}  // namespace

void RestoreTls() {
    Authority::Remove();
    DefaultProxy::Restore();
    TraceSession::Remove();
}

void TrustedServer(Findings& findings) {
    Try(findings, {});
}

void UntrustedServer(Findings& findings) {
    Try(findings, {.trusted = false, .verdict = CERT_E_CHAINING});
}

void WronglyNamedServer(Findings& findings) {
    Try(findings, {.name = "other.zorv-acceptance.test", .verdict = CERT_E_CN_NO_MATCH});
}

void ExpiredServer(Findings& findings) {
    Try(findings, {.fromDay = -20, .toDay = -2, .verdict = CERT_E_EXPIRED});
}

void RevokedServer(Findings& findings) {
    const DefaultProxy none(findings, "");
    Authority authority;
    std::string list;
    const LoopbackServer lists(0, [&](Connection& client, const Request&) {
        client.Write(HttpAnswer(200, list, "Content-Type: application/pkix-crl\r\n"));
    });
    NeedListening(findings, lists);
    const OwnedCertificate certificate =
        authority.Issue(kHost, -2, 2, "http://localhost:" + std::to_string(lists.port()) + "/revoked.crl");
    list = authority.RevocationList(certificate.get());
    NeedTls(findings, certificate.get());
    authority.Trust();
    NeedVerdict(findings, certificate.get(), S_OK);
    const OwnedRevocations revocations = Revocations(list);
    findings.Expect(revocations != nullptr && IsListed(revocations.get(), certificate.get()),
                    "the authority's list names the certificate as revoked");
    const LoopbackServer server(
        kPort, [](Connection& client, const Request&) { client.Write(HttpAnswer(200, kAnswer)); }, certificate.get());
    NeedListening(findings, server);
    const Exchange exchange = Post(kHost, "/api/FS/query", kBody, true);
    SawHandshakes(findings, server);
    ExpectAccepted(findings, server, exchange);
    findings.ExpectNumber(static_cast<long long>(lists.heard().size()), 0, "how often somebody asked for the list");
}

void AnswersOverTls(Findings& findings) {
    const DefaultProxy none(findings, "");
    Authority authority;
    const OwnedCertificate certificate = authority.Issue(kHost, -2, 2);
    NeedTls(findings, certificate.get());
    authority.Trust();
    NeedVerdict(findings, certificate.get(), S_OK);
    const LoopbackServer plain(0,
                               [](Connection& client, const Request&) { client.Write(HttpAnswer(200, "out of TLS")); });
    NeedListening(findings, plain);
    const LoopbackServer server(
        kPort,
        [&](Connection& client, const Request& request) {
            const std::string address = "http://localhost:" + std::to_string(plain.port()) + "/";
            client.Write(request.firstLine().starts_with("POST /cut ")
                             ? "HTTP/1.1 200 Said\r\nContent-Length: 100\r\n\r\n0123456789"
                             : HttpAnswer(302, "", "Location: " + address + "\r\n"));
        },
        certificate.get());
    NeedListening(findings, server);
    ExpectCut(findings, Post(kHost, "/cut", kBody, true), "HttpSSLPost");
    const Exchange led = Post(kHost, "/redirect", kBody, true);
    findings.ExpectText(led.result, kTransportError, "a redirection out of TLS is a failure");
    findings.Saw("status " + std::to_string(led.report.status) + ", error " + std::to_string(led.report.error));
    findings.ExpectNumber(static_cast<long long>(plain.heard().size()), 0, "requests that came without TLS");
    SawHandshakes(findings, server);
}

void QueryOfInstalledProgram(Findings& findings) {
    const DefaultProxy none(findings, "");
    Authority authority;
    const OwnedCertificate certificate = authority.Issue(kHost, -2, 2);
    NeedTls(findings, certificate.get());
    const LoopbackServer server(
        kPort, [](Connection& client, const Request&) { client.Write(HttpAnswer(200, R"({"status": "NONE"})")); },
        certificate.get());
    NeedListening(findings, server);
    const auto test = [&findings] {
        const Ended ended = RunProgram(Quoted(ProgramFolder() + "\\zorvctl.exe") + " server test localhost", 90);
        findings.Expect(ended.started && ended.inTime, "zorvctl server test runs");
        findings.Saw(ended.output);
        return ended.code;
    };
    findings.ExpectNumber(test(), 1, "its exit code for an unknown authority");
    findings.ExpectNumber(static_cast<long long>(server.bytes()), 0, "bytes of the request at that server");
    authority.Trust();
    findings.ExpectNumber(test(), 0, "its exit code for the same server when the authority is trusted");
    findings.ExpectText(FirstLines(server), "POST /api/FS/query HTTP/1.1", "what the server was asked");
    SawHandshakes(findings, server);
}

}  // namespace zorvalis::acceptance
