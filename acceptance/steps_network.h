// The steps of group 6, which steps_network.cpp numbers, and what they share. They call the product's client in the
// kit's own process and talk to servers of the kit's on loopback.
#pragma once

#include <windows.h>

#include <winhttp.h>

#include <string>
#include <vector>

#include "loopback_server.h"
#include "saved_value.h"
#include "step.h"
#include "upload/http_client.h"

namespace zorvalis::acceptance {

// The proxy that WinHTTP takes where a program asks for the default one: this one, or none for an empty text. As
// `netsh winhttp set proxy` sets it, until the end of the scope.
class DefaultProxy {
public:
    DefaultProxy(Findings& findings, const std::string& address);

    static void Restore();

private:
    const SavedValue saved_;
};

// One exchange of the product's.
struct Exchange {
    std::string result;
    HttpReport report;
    std::vector<std::string> lines;  // of its log; none where Windows makes no trace session

    bool HasLine(const std::string& begin) const;
};

Exchange Post(const std::string& host, const std::string& path, const std::string& body, bool secure,
              std::int32_t receiveTimeout = kTransferTimeout);

// Ends the step where the port is not free on this machine.
void NeedListening(Findings& findings, const LoopbackServer& server);

// Ends the step where this Windows cannot be the server's side of TLS with this certificate.
void NeedTls(Findings& findings, PCCERT_CONTEXT certificate);

std::string FirstLines(const LoopbackServer& server);

// The answer had a tenth of its length and then an end. Whether WinHTTP takes that for an error is its own affair.
// `call` is the product's, as it names itself in its log.
void ExpectCut(Findings& findings, const Exchange& exchange, const std::string& call);

// steps_network_plain.cpp
void PlainExchanges(Findings& findings);
void Redirections(Findings& findings);
void CutAnswer(Findings& findings);
void SilentServer(Findings& findings);
void OnlineState(Findings& findings);
void ServersName(Findings& findings);

// steps_network_tls.cpp
void TrustedServer(Findings& findings);
void UntrustedServer(Findings& findings);
void WronglyNamedServer(Findings& findings);
void ExpiredServer(Findings& findings);
void RevokedServer(Findings& findings);
void AnswersOverTls(Findings& findings);
void QueryOfInstalledProgram(Findings& findings);
void RestoreTls();

// steps_network_proxy.cpp
void PlainThroughProxy(Findings& findings);
void TlsAsksProxy(Findings& findings);
void TlsThroughProxy(Findings& findings);

// steps_network_system.cpp
void ProxyOfSystem(Findings& findings);
void TlsOfSystem(Findings& findings);
void RestoreSystem();

}  // namespace zorvalis::acceptance
