// Servers that are not the service: false answers, false errors, and what the library tells of a server and of itself.
#include <windows.h>

#include "caller.h"
#include "endpoint_server.h"
#include "kit.h"
#include "part.h"
#include "platform/text.h"
#include "rpc/guard.h"
#include "steps_endpoint.h"
#include "windows/false_service.h"

namespace zorvalis::acceptance {
namespace {

using zorvalis_client::Client;

constexpr int kGetModelName = 3;  // its number

// Of the last exception that was raised on this thread, before any handler looked at it.
thread_local DWORD seenCode = 0, seenFlags = 0;

LONG CALLBACK SeeException(EXCEPTION_POINTERS* exception) {
    seenCode = exception->ExceptionRecord->ExceptionCode;
    seenFlags = exception->ExceptionRecord->ExceptionFlags;
    return EXCEPTION_CONTINUE_SEARCH;
}

std::string NameOf(const char* what) {
    return std::string("zorv-acceptance-") + what + "-" + std::to_string(::GetCurrentProcessId());
}

void NeedServer(Findings& findings, const false_service::Server& server) {
    if (server.status() != RPC_S_OK) {
        findings.Fail("a server cannot be made: " + ErrorText(static_cast<unsigned long>(server.status())));
    }
}

// The numbers under Wine are those of the room that ends where nobody may write; on Windows they are for the report.
void FalseAnswers(Findings& findings) {
    const false_service::Server server(NameOf("false"));
    NeedServer(findings, server);
    Client client({}, NameOf("false"));
    for (const auto& [what, bytes, known] : false_service::kFalseAnswers) {
        false_service::nextAnswer = bytes;
        const std::int32_t first = StatusOf([&] { client.GetUUID(4); });
        const std::int32_t second = StatusOf([&] { client.BigDataServiceCall("{}", 4); });
        findings.Expect(first != 0 && second != 0,
                        std::string("a false answer (") + what + ") is refused: a direct call ends with " +
                            ErrorText(static_cast<unsigned long>(first)) + ", one in JSON with " +
                            ErrorText(static_cast<unsigned long>(second)) + "; under Wine " +
                            std::to_string(static_cast<std::uint32_t>(known)));
    }
    false_service::nextAnswer = false_service::kTrueAnswer;
    findings.ExpectText(client.GetUUID(4), "abc", "the client goes on to take a true answer");
}

// The words: the endpoint, and the number that GetModelName raises.
int RaiseErrors(const std::vector<std::string>& words) {
    ::SetErrorMode(SEM_NOGPFAULTERRORBOX);
    const false_service::Server server(words.at(0));
    if (server.status() != RPC_S_OK) {
        return static_cast<int>(server.status());
    }
    false_service::faults[kGetModelName] = static_cast<std::uint32_t>(std::stoul(words.at(1)));
    TellReady();
    ::Sleep(60000);
    return 0;
}

const Part kRaiseErrors("rpc-raise-errors", RaiseErrors);

// A call to a server that raises that number, which may end the server.
void Raised(Findings& findings, std::uint32_t code) {
    const std::string endpoint = NameOf("errors") + "-" + std::to_string(code);
    PartProcess server(findings, kRaiseErrors.name, {endpoint, std::to_string(code)});
    const Binding binding(endpoint);
    ClientContext context = nullptr;
    if (const std::uint32_t opened = zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding.handle, &context); })) {
        findings.Fail("no context: " + ErrorText(opened));
    }
    seenCode = seenFlags = 0;
    const std::uint32_t status = zorvalis_rpc::Guarded([&] { call_GetModelName(context, 1); });
    const DWORD lastCode = seenCode;
    zorvalis_rpc::Guarded([&] { ::RpcSsDestroyClientContext(&context); });
    const int end = server.CodeOf(0);
    findings.Expect(status != 0 && lastCode == status,
                    "a server that raises " + ErrorText(code) + " makes the call's error: " + ErrorText(status) +
                        (end == -1 ? "" : "; it has ended, with " + ErrorText(static_cast<unsigned long>(end))));
}

// The guard takes a stack overflow and a breakpoint for the other end's only when they cannot be continued; where the
// runtime raised them in another way they would end this process.
void FalseErrors(Findings& findings) {
    ::AddVectoredExceptionHandler(1, SeeException);
    Raised(findings, 1702);
    Raised(findings, 0xE06D7363);
    const bool isFinal = (seenFlags & EXCEPTION_NONCONTINUABLE) != 0;
    Raised(findings, EXCEPTION_ACCESS_VIOLATION);
    ImpossibleUnderWine(findings, !isFinal, "this runtime raises a server's error as what could be continued");
    if (findings.Expect(isFinal, "the runtime raises it as what cannot be continued")) {
        Raised(findings, EXCEPTION_STACK_OVERFLOW);
        Raised(findings, EXCEPTION_BREAKPOINT);
        findings.Saw("this process is still there");
    }
}

// Past the library, with the options of its binding and without.
std::string SeenAs(EchoServer& server, const std::string& options) {
    const Binding binding(server.Endpoint(), options);
    ClientContext context = nullptr;
    wchar_t answer[1024] = {};
    std::uint32_t status = zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding.handle, &context); });
    if (status == 0) {
        status = zorvalis_rpc::Guarded([&] { call_BigDataServiceCall(context, L"caller", answer, 1024, 0); });
        zorvalis_rpc::Guarded([&] { call_RemoteClose(&context); });
    }
    return status == 0 ? platform::to_utf8(answer) : Json{{"error", status}}.dump();
}

void Identified(Findings& findings) {
    EchoServer server(findings);
    const Json free = Json::parse(SeenAs(server, ""));
    const Json known = Json::parse(Client({}, server.Endpoint()).BigDataServiceCall("caller"));
    findings.Saw("without options a server sees " + free.dump() + ", by the library " + known.dump());
    const bool isIgnored = !known.contains("level") || known.value("level", -1) == free.value("level", -1);
    ImpossibleUnderWine(findings, isIgnored, "this runtime does not heed what a client allows a server");
    const Json own = Json::parse(ThisProcess());
    findings.ExpectNumber(free.value("level", -1), SecurityImpersonation,
                          "without options a server may act in its client's name");
    findings.ExpectNumber(known.value("level", -1), SecurityIdentification,
                          "a client of the library is identified alone");
    findings.ExpectText(known.value("sid", ""), own.value("sid", "?"), "as who it is");
}

// The pool's threads, which make the calls, impersonate nobody.
void Impersonating(Findings& findings) {
    EchoServer server(findings);
    const std::string own = Json::parse(ThisProcess()).value("sid", "?");
    Client client({}, server.Endpoint());
    if (::ImpersonateAnonymousToken(::GetCurrentThread()) == FALSE) {
        ImpossibleUnderWine(findings, true, "this Windows has no anonymous token: " + ErrorText(::GetLastError()));
        findings.Fail("this thread cannot impersonate: " + ErrorText(::GetLastError()));
    }
    std::string seen = "{}", opened = "{}";
    const std::int32_t status = StatusOf([&] {
        seen = client.BigDataServiceCall("caller");
        opened = Client({}, server.Endpoint()).BigDataServiceCall("caller");
    });
    ::RevertToSelf();
    findings.ExpectNumber(status, 0, "a thread that impersonates nobody in particular opens clients and calls");
    findings.ExpectText(Json::parse(seen).value("sid", "none"), own, "the server sees the user of its process");
    findings.ExpectText(Json::parse(opened).value("sid", "none"), own, "by a client that it has opened itself too");
}

void NoInterface(Findings& findings) {
    const std::string name = NameOf("gone");
    {
        const false_service::Server server(name);
        NeedServer(findings, server);
        findings.ExpectNumber(StatusOf([&] { Client({}, name); }), 0, "an endpoint with its interface serves");
    }
    const Binding binding(name);
    ClientContext context = nullptr;
    const std::uint32_t status = zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding.handle, &context); });
    findings.Expect(status == RPC_S_UNKNOWN_IF || status == RPC_S_NOT_LISTENING,
                    "an endpoint without its interface refuses: " + ErrorText(status));
    findings.ExpectNumber(StatusOf([&] { Client({}, name); }), RPC_S_SERVER_UNAVAILABLE,
                          "which the library calls a service that does not run");
    findings.ExpectNumber(StatusOf([&] { Client({}, NameOf("nobody")); }), RPC_S_SERVER_UNAVAILABLE,
                          "and so an endpoint that nobody has");
}

// In the kit's own processes; a step of the installed service does the same with that.
void SecondProcess(Findings& findings) {
    EchoServer server(findings);
    const false_service::Server second(server.Endpoint());
    ImpossibleUnderWine(findings, second.status() == RPC_S_OK, "this runtime gives one endpoint to two processes");
    findings.ExpectNumber(second.status(), RPC_S_DUPLICATE_ENDPOINT, "a second process on an endpoint is refused");
}

// A server offers what it was asked for: here ncalrpc, and no other protocol.
void OneProtocol(Findings& findings) {
    EchoServer server(findings);
    const auto opened = [&](const std::string& protocol, const std::string& address, const std::string& endpoint) {
        const Binding binding(endpoint, "", protocol, address);
        ClientContext context = nullptr;
        return binding.status != RPC_S_OK ? static_cast<std::uint32_t>(binding.status)
                                          : zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding.handle, &context); });
    };
    findings.ExpectNumber(opened("ncalrpc", "", server.Endpoint()), 0, "ncalrpc on this machine is served");
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"ncacn_np", "\\\\localhost", "\\pipe\\" + server.Endpoint()},
        {"ncacn_ip_tcp", "127.0.0.1", "135"},
        {"ncalrpc", "zorv-acceptance-other", server.Endpoint()},
    };
    for (const auto& [protocol, address, endpoint] : cases) {
        const std::uint32_t status = opened(protocol, address, endpoint);
        if (std::string(protocol) == "ncalrpc") {
            ImpossibleUnderWine(findings, status == 0, "this runtime does not look at a machine's name");
        }
        findings.Expect(status != 0,
                        std::string("a call by ") + protocol + " to " + address + " is refused: " + ErrorText(status));
    }
}

}  // namespace

std::vector<Step> FalseServiceSteps() {
    return {
        {"5.30", "A false server cannot write behind the room for an answer", FalseAnswers, 60, nullptr, false},
        {"5.31", "A server's errors of any number end their call alone", FalseErrors, 60, nullptr, false},
        {"5.32", "A server learns who calls and may not act in the caller's name", Identified, 60, nullptr, false},
        {"5.33", "An endpoint without its interface counts as a service that does not run", NoInterface, 60, nullptr,
         false},
        {"5.34", "A second process on an endpoint is refused", SecondProcess, 60, nullptr, false},
        {"5.35", "Another machine and other protocols do not reach the endpoint", OneProtocol, 90, nullptr, false},
        {"5.36", "A thread that impersonates calls in the name of its process", Impersonating, 60, nullptr, false},
    };
}

}  // namespace zorvalis::acceptance
