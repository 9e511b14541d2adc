// Group 6: the network. The list of its steps, and what they share.
#include "steps_network.h"

#include <winerror.h>

#include "common/registry.h"
#include "kit.h"
#include "platform/windows/wide.h"
#include "status_text.h"
#include "trace_session.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kConnections[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";
constexpr wchar_t kProxyValue[] = L"WinHttpSettings";  // where WinHTTP keeps its default proxy

void RestorePlain() {
    DefaultProxy::Restore();
    TraceSession::Remove();
}

void RestoreServersName() {
    SavedValue::Restore(kProductKey, L"BGSERVER_URL");
    TraceSession::Remove();
}

}  // namespace

DefaultProxy::DefaultProxy(Findings& findings, const std::string& address) : saved_(kConnections, kProxyValue) {
    std::wstring proxy = platform::to_wide(address);
    WINHTTP_PROXY_INFO info = {};
    info.dwAccessType = proxy.empty() ? WINHTTP_ACCESS_TYPE_NO_PROXY : WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    info.lpszProxy = proxy.empty() ? nullptr : proxy.data();
    if (::WinHttpSetDefaultProxyConfiguration(&info) == FALSE) {
        findings.Fail("the machine's default proxy is set for this step: " + ErrorText(::GetLastError()));
    }
}

void DefaultProxy::Restore() {
    SavedValue::Restore(kConnections, kProxyValue);
}

bool Exchange::HasLine(const std::string& begin) const {
    for (const std::string& line : lines) {
        if (line.starts_with(begin)) {
            return true;
        }
    }
    return false;
}

Exchange Post(const std::string& host, const std::string& path, const std::string& body, bool secure,
              std::int32_t receiveTimeout) {
    Exchange exchange;
    const auto post = [&] {
        auto* const call = secure ? HttpSSLPost : HttpPost;
        exchange.result =
            call(host, path, body, kJsonContent, kConnectTimeout, kTransferTimeout, receiveTimeout, &exchange.report);
    };
    if (IsWine()) {  // whose trace sessions take nothing
        post();
    } else {
        std::string problem;
        exchange.lines = LogLinesOf(post, problem);
        if (!problem.empty()) {
            exchange.lines.push_back(problem);
        }
    }
    return exchange;
}

void NeedListening(Findings& findings, const LoopbackServer& server) {
    if (server.error() != 0) {
        findings.Impossible("port " + std::to_string(server.port()) + " is not free: " + ErrorText(server.error()));
    }
}

void NeedTls(Findings& findings, PCCERT_CONTEXT certificate) {
    const std::int32_t status = TlsStatus(certificate);
    if (status == SEC_E_OK) {
        return;
    }
    const std::string what = "a server of TLS is made with the kit's certificate: " + StatusText(status);
    if (IsWine()) {
        findings.Impossible(what);
    }
    findings.Fail(what);
}

std::string FirstLines(const LoopbackServer& server) {
    std::string text;
    for (const Request& request : server.heard()) {
        text += (text.empty() ? "" : "; ") + request.firstLine();
    }
    return text;
}

void ExpectCut(Findings& findings, const Exchange& exchange, const std::string& call) {
    findings.ExpectText(exchange.result, "0123456789", "the result is what had come");
    const bool isError = exchange.report.failed == HttpStep::body;
    findings.Expect(isError || exchange.report.failed == HttpStep::none, "the exchange comes to reading the body");
    findings.Saw(isError ? "WinHTTP ended the reading with error " + std::to_string(exchange.report.error)
                         : "WinHTTP read the cut as a normal end, without an error");
    if (!IsWine()) {
        const bool isLogged = exchange.HasLine("[" + call + "][WinHttpQueryDataAvailable] Error: ") ||
                              exchange.HasLine("[" + call + "][WinHttpReadData] Error: ");
        findings.Expect(isLogged == isError, "an error is in the log, and no other");
    }
}

std::vector<Step> NetworkSteps() {
    return {
        {"6.1", "A request reaches a server on port 80 as it was made, and its answer comes back", PlainExchanges, 90,
         RestorePlain, false},
        {"6.2", "Windows follows a redirection", Redirections, 60, RestorePlain, false},
        {"6.3", "Of an answer that is cut short the product gets what had come", CutAnswer, 60, RestorePlain, false},
        {"6.4", "A server that is silent is given up after the limit", SilentServer, 60, RestorePlain, false},
        {"6.5", "A server with a trusted certificate gets the request over TLS", TrustedServer, 120, RestoreTls, false},
        {"6.6", "A server with a certificate of an unknown authority gets nothing", UntrustedServer, 120, RestoreTls,
         false},
        {"6.7", "A server with a certificate of another name gets nothing", WronglyNamedServer, 120, RestoreTls, false},
        {"6.8", "A server with an expired certificate gets nothing", ExpiredServer, 120, RestoreTls, false},
        {"6.9", "A revoked certificate is taken, since nobody asks for revocations", RevokedServer, 120, RestoreTls,
         false},
        {"6.10", "Over TLS, too, the product gets what had come, and no redirection leads out of TLS", AnswersOverTls,
         120, RestoreTls, false},
        {"6.11", "A request goes through the proxy that is set for WinHTTP", PlainThroughProxy, 60, RestorePlain,
         false},
        {"6.12", "A request over TLS asks WinHTTP's proxy for a way to port 443, and tells it nothing else",
         TlsAsksProxy, 60, RestorePlain, false},
        {"6.13", "Through the proxy, too, the certificate is checked against the server's name", TlsThroughProxy, 120,
         RestoreTls, false},
        {"6.14", "The machine counts as connected while it has a network", OnlineState, 60, nullptr, false},
        {"6.15", "The server's name is read from the registry for each request", ServersName, 60, RestoreServersName},
        {"6.16", "The installed zorvctl meets a trusted server, and gives an untrusted one nothing",
         QueryOfInstalledProgram, 120, RestoreTls},
        {"6.17", "The proxy that is set for WinHTTP serves LocalSystem, too", ProxyOfSystem, 150, RestoreSystem, false},
        {"6.18", "LocalSystem trusts the machine's authorities, and no other", TlsOfSystem, 300, RestoreSystem, false},
    };
}

}  // namespace zorvalis::acceptance
