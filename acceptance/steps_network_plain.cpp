// Group 6: exchanges without TLS, on port 80, and what needs no server.
#include "steps_network.h"

#include <ws2tcpip.h>

#include <iphlpapi.h>

#include "common/deployment.h"
#include "common/registry.h"
#include "kit.h"
#include "platform/windows/wide.h"
#include "polling.h"

namespace zorvalis::acceptance {
namespace {

constexpr std::uint16_t kPort = 80;
constexpr char kHost[] = "localhost";

std::string LongText() {
    std::string text;
    while (text.size() < 3'000'000) {
        text += "line " + std::to_string(text.size()) + "\n";
    }
    return text;
}

std::string Path(const Request& request) {
    const std::string line = request.firstLine();
    const std::size_t begin = line.find(' ') + 1;
    return line.substr(begin, line.find(' ', begin) - begin);
}

}  // namespace

void PlainExchanges(Findings& findings) {
    const DefaultProxy none(findings, "");
    const LoopbackServer server(kPort, [](Connection& client, const Request& request) {
        const std::string path = Path(request);
        const int status = path.starts_with("/status/") ? std::stoi(path.substr(8)) : 200;
        client.Write(HttpAnswer(status, path == "/long" ? LongText() : path == "/empty" ? "" : "answer"));
    });
    NeedListening(findings, server);

    const std::string body = "{\"text\": \"\u00fc\u20ac\"}";
    findings.ExpectText(Post(kHost, "/json", body, false).result, "answer", "the answer to a POST");
    findings.ExpectText(HttpPost(kHost, "/text", "plain", 0, 10000, 30000, 30000), "answer",
                        "the answer to plain text");
    findings.ExpectText(HttpGet(kHost, "/get", 10000, 30000, 30000), "answer", "the answer to a GET");
    const std::vector<Request> heard = server.heard();
    if (!findings.ExpectNumber(static_cast<long long>(heard.size()), 3, "requests that have arrived")) {
        return;
    }
    for (const Request& request : heard) {
        findings.Saw(request.oneLine());
        findings.Expect(request.has("User-Agent: ZORV Zorvalis/1.0\r\n") && request.has("Host: localhost"),
                        "it names the program and the host");
        findings.Expect(!request.has("Accept:") && !request.has("Expect:"), "it has no line that nobody asked for");
    }
    findings.ExpectText(heard[0].firstLine(), "POST /json HTTP/1.1", "the first line of a POST");
    findings.Expect(heard[0].body == body, "its body arrives byte by byte");
    findings.Expect(heard[0].has("Content-Type: application/json\r\n"), "JSON is called so");
    findings.Expect(heard[1].has("Content-Type: text/plain\r\n"), "and anything else plain text");
    findings.ExpectText(heard[2].firstLine(), "GET /get HTTP/1.1", "the first line of a GET");
    findings.Expect(heard[2].body.empty() && !heard[2].has("Content-Type:"), "a GET has no body and no type of one");

    findings.ExpectText(Post(kHost, "/empty", "", false).result, "", "an empty answer is empty");
    findings.Expect(Post(kHost, "/long", LongText(), false).result == LongText(), "three megabytes go there and back");
    findings.Expect(server.heard().back().body == LongText(), "and arrive whole");
    for (const int status : {201, 204, 404, 500}) {
        const Exchange exchange = Post(kHost, "/status/" + std::to_string(status), "", false);
        findings.ExpectText(exchange.result, kTransportError, "the status " + std::to_string(status) + " is a failure");
        findings.ExpectNumber(exchange.report.status, status, "and reported");
    }
}

void Redirections(Findings& findings) {
    const DefaultProxy none(findings, "");
    const LoopbackServer server(kPort, [](Connection& client, const Request& request) {
        const std::string path = Path(request);
        client.Write(path == "/new" ? HttpAnswer(200, "moved")
                                    : HttpAnswer(std::stoi(path.substr(1)), "", "Location: /new\r\n"));
    });
    NeedListening(findings, server);
    findings.ExpectText(HttpGet(kHost, "/301", 10000, 30000, 30000), "moved", "a GET ends where 301 leads");
    const Exchange posted = Post(kHost, "/302", "body", false);
    if (posted.report.error == ERROR_WINHTTP_INCORRECT_HANDLE_STATE && IsWine()) {
        findings.Saw("not tried: a POST that 302 leads away, which Wine follows and then gives up");
    } else {
        findings.ExpectText(posted.result, "moved", "a POST ends where 302 leads");
    }
    findings.ExpectText(Post(kHost, "/307", "body", false).result, "moved", "a POST ends where 307 leads");
    for (const Request& request : server.heard()) {
        findings.Saw(request.oneLine());
    }
}

void CutAnswer(Findings& findings) {
    const DefaultProxy none(findings, "");
    const LoopbackServer server(kPort, [](Connection& client, const Request&) {
        client.Write("HTTP/1.1 200 Said\r\nContent-Length: 100\r\n\r\n0123456789");
    });
    NeedListening(findings, server);
    ExpectCut(findings, Post(kHost, "/cut", "", false), "HttpPost");
}

void SilentServer(Findings& findings) {
    const DefaultProxy none(findings, "");
    std::atomic<bool> returned{false};
    std::atomic<bool> givenUp{false};
    const LoopbackServer server(
        kPort, [&](Connection&, const Request&) { givenUp = Until(8, [&] { return returned.load(); }); });
    NeedListening(findings, server);
    const auto begin = std::chrono::steady_clock::now();
    const Exchange exchange = Post(kHost, "/silent", "", false, 2000);
    returned = true;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    findings.Saw("error " + std::to_string(exchange.report.error) + " after " + std::to_string(took.count()) + " s");
    findings.ExpectText(exchange.result, kTransportError, "no answer is a failure");
    if (took > std::chrono::seconds(7) && IsWine()) {
        findings.Impossible("WinHTTP waits for an answer's head without this limit");
    }
    findings.ExpectNumber(exchange.report.error, ERROR_WINHTTP_TIMEOUT, "its error");
    Until(10, [&] { return givenUp.load(); });
    findings.Expect(givenUp, "the client gives up, not the server");
    findings.Expect(took >= std::chrono::milliseconds(1900), "and not before its limit of two seconds");
}

void OnlineState(Findings& findings) {
    std::vector<char> room(1 << 18);
    auto* const adapters = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(room.data());
    auto size = static_cast<ULONG>(room.size());
    const ULONG status =
        ::GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER,
                               nullptr, adapters, &size);
    int up = 0;
    int led = 0;
    for (auto* adapter = status == ERROR_SUCCESS ? adapters : nullptr; adapter != nullptr; adapter = adapter->Next) {
        const bool counts = adapter->IfType != IF_TYPE_SOFTWARE_LOOPBACK && adapter->OperStatus == IfOperStatusUp &&
                            adapter->FirstUnicastAddress != nullptr;
        up += counts ? 1 : 0;
        led += counts && adapter->FirstGatewayAddress != nullptr ? 1 : 0;
    }
    const bool online = checkNewtWork();
    findings.Saw(std::to_string(up) + " adapters of this machine are up and have an address, " + std::to_string(led) +
                 " of them a gateway; the product counts it as " + (online ? "connected" : "not connected"));
    if (online && IsWine()) {
        findings.Impossible("InternetGetConnectedState says yes to every machine");
    }
    if (up != 0 && led == 0) {
        findings.Impossible("without a gateway either answer is right");
    }
    findings.Expect(online == (up != 0), "which is right");
}

void ServersName(Findings& findings) {
    const SavedValue saved(kProductKey, L"BGSERVER_URL");
    for (const char* name : {"localhost", "zorv-acceptance.test", ""}) {
        WriteRegString(kLocalMachine, kProductKey, L"BGSERVER_URL", platform::to_wide(name));
        findings.ExpectText(getBGServerURL(), name, "the server that is asked");
    }
    DeleteRegValue(kLocalMachine, kProductKey, L"BGSERVER_URL");
    findings.ExpectText(getBGServerURL(), deployment::DefaultServer, "without the value it is the build's own");
    const Exchange empty = Post("", "/", "", true);
    findings.ExpectText(empty.result, kTransportError, "a request without a server's name fails");
}

}  // namespace zorvalis::acceptance
