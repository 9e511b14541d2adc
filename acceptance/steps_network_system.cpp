// Group 6: exchanges of LocalSystem, as which the service and the scheduled passes run: a proxy or an authority that
// holds for the administrator alone would not serve them.

#include "certificates.h"
#include "kit.h"
#include "part.h"
#include "steps_network.h"
#include "system_part.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kHost[] = "zorv-acceptance.test";

// The host, then whether it is asked over TLS. No trace session: the kit's own process has it.
int PostAsPart(const std::vector<std::string>& arguments) {
    HttpReport report;
    auto* const call = arguments.at(1) == "1" ? HttpSSLPost : HttpPost;
    const std::string result = call(arguments.at(0), "/path", "body", kJsonContent, kConnectTimeout, kTransferTimeout,
                                    kTransferTimeout, &report);
    Say("result " + result + ", error " + std::to_string(report.error));
    return 0;
}

const Part kPost("network-post", PostAsPart);

std::string PostOfSystem(Findings& findings, bool secure) {
    const SystemPart system(WorkFolder::Path("system.txt"), "network-post", {kHost, secure ? "1" : "0"});
    if (system.error() != 0) {
        findings.Fail("a service of the kit's cannot be started: " + ErrorText(system.error()));
    }
    system.HasPrinted("\n", 100);
    const std::string output = system.output();
    return output.substr(0, output.find_first_of("\r\n"));
}

}  // namespace

void RestoreSystem() {
    RestoreTls();
    RemoveSystemService();
    RemoveWorkFolder();
}

void ProxyOfSystem(Findings& findings) {
    const WorkFolder folder;
    const LoopbackServer proxy(0,
                               [](Connection& client, const Request&) { client.Write(HttpAnswer(200, "passed on")); });
    NeedListening(findings, proxy);
    const DefaultProxy set(findings, "127.0.0.1:" + std::to_string(proxy.port()));
    findings.ExpectText(PostOfSystem(findings, false), "result passed on, error 0", "what LocalSystem gets");
    findings.ExpectNumber(static_cast<long long>(proxy.heard().size()), 1, "requests at the proxy");
}

void TlsOfSystem(Findings& findings) {
    const WorkFolder folder;
    Authority authority;
    const OwnedCertificate certificate = authority.Issue(kHost, -2, 2);
    NeedTls(findings, certificate.get());
    const LoopbackServer server(
        0, [](Connection& client, const Request&) { client.Write(HttpAnswer(200, "answer")); }, certificate.get());
    NeedListening(findings, server);
    const LoopbackServer proxy(0, [&](Connection& client, const Request&) {
        client.Write("HTTP/1.1 200 Connected\r\n\r\n");
        LeadTo(client, server.port());
    });
    NeedListening(findings, proxy);
    const DefaultProxy set(findings, "127.0.0.1:" + std::to_string(proxy.port()));
    findings.ExpectText(PostOfSystem(findings, true), "result error, error 12175",
                        "what it gets while nobody trusts it");
    findings.ExpectNumber(static_cast<long long>(server.bytes()), 0, "bytes of the request at the server");
    authority.Trust();
    findings.ExpectText(PostOfSystem(findings, true), "result answer, error 0", "what it gets from a trusted server");
}

}  // namespace zorvalis::acceptance
