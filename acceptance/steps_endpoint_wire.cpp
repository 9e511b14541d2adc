// Every procedure and every callback by each transfer syntax, and the numbers with which calls are refused. The server
// is the kit's own, with the product's endpoint and stubs.
#include <windows.h>

#include <rpc.h>

#include "differences.h"
#include "endpoint_server.h"
#include "kit.h"
#include "platform/text.h"
#include "rpc/guard.h"
#include "steps_endpoint.h"

namespace zorvalis::acceptance {
namespace {

using zorvalis_client::Client;
using Offer = Client64::Offer;

constexpr std::int64_t kCookie = INT64_C(0x7766554433221100);
constexpr char kText[] = "J\u00fcrgen \u20ac \U0001f980";  // one, three and four bytes, and two units of UTF-16

// Makes every call once, and compares what arrived at the server and what came back.
template <class Caller>
void TryEveryCall(Findings& findings, EchoServer& server, Caller& client) {
    Differences numbers, bytes, texts, both;
    const auto arrived = [&](Differences& group, const std::string& name, const std::string& words, auto call) {
        call();
        group.Compare(name, server.State().at("seen").template get<std::string>(), name + words);
    };
    const std::string cookie = "|" + std::to_string(kCookie), text = kText, letters = platform::to_utf8(kEchoText);
#define ARRIVED(group, name, words, ...) arrived(group, #name, words + cookie, [&] { client.name(__VA_ARGS__); })
    ARRIVED(numbers, GetTestDataFunc, "|" + std::to_string(INT64_MIN), INT64_MIN, kCookie);
    ARRIVED(numbers, GetModelName, "", kCookie);
    ARRIVED(numbers, GetSerialNumber, "", kCookie);
    ARRIVED(numbers, GetFamilyName, "", kCookie);
    ARRIVED(numbers, GetChassisTypes, "", kCookie);
    ARRIVED(numbers, GetProductName, "", kCookie);
    ARRIVED(numbers, GetBatteryHealthMode, "", kCookie);
    ARRIVED(numbers, GetQuietFanMode, "", kCookie);
    ARRIVED(numbers, GetSystemInfoData, "", kCookie);
    ARRIVED(numbers, GetVersionString, "", kCookie);
    ARRIVED(numbers, SetBatteryHealth, "|-1", -1, kCookie);
    ARRIVED(numbers, GetMainSwitchByUser, "", kCookie);
    ARRIVED(bytes, SetQuietFan, "|1", true, kCookie);
    ARRIVED(bytes, SetMainSwitchByUser, "|0", false, kCookie);
    ARRIVED(texts, SetAppFolder, "|" + text, text, kCookie);
#undef ARRIVED
    arrived(texts, "SetMyZorvPP", "|" + text + "||1|" + text + "|1|0",
            [&] { texts.Compare("its result", client.SetMyZorvPP(text, "", "1", text, true) ? "1" : "0", "1"); });
    arrived(numbers, "GetUUID", "|241|0", [&] { texts.Compare("its answer", client.GetUUID(241), letters); });
    const std::string large(100000, 'x');
    arrived(both, "BigDataServiceCall", "|100010|0",
            [&] { both.Compare("its answer", client.BigDataServiceCall("text " + large, 100010), letters + large); });
    numbers.Report(findings, "procedures with numbers get them, and answer");
    bytes.Report(findings, "procedures with a flag get it");
    texts.Report(findings, "procedures with texts get them, and answer");
    both.Report(findings, "a text of 100,000 characters goes in while one comes out");
}

// What the server's callbacks are to be; the text is in the ANSI code page.
std::string ExpectedCallbacks() {
    wchar_t text[8] = {};
    ::MultiByteToWideChar(CP_ACP, 0, "B\xe4r", -1, text, 8);
    const auto cookie = [](int more) { return std::to_string(kCookie + more); };
    return "testData " + std::to_string(INT64_MIN) + " " + cookie(1) + "; text " + platform::to_utf8(text) + " 3 " +
           cookie(2) + "; flag 1 -6 " + cookie(3) + "; integer -8 9 " + cookie(4);
}

template <class Caller>
void TryCallbacks(Findings& findings, EchoServer& server, Caller& client, Heard& heard) {
    heard.Take();
    client.GetModelName(kCookie);
    const std::string words = heard.Take();
    const auto status = server.State().at("callback").get<std::uint32_t>();
    ImpossibleUnderWine(findings, words.empty() && status != 0,
                        "this runtime makes no callbacks: the server's ended with " + ErrorText(status));
    findings.ExpectNumber(status, 0, "the server's callbacks end without an error");
    findings.ExpectText(words, ExpectedCallbacks(), "all four come, with their values, before the call has ended");
}

void EveryCall(Findings& findings) {
    EchoServer server(findings);
    Client client({}, server.Endpoint());
    TryEveryCall(findings, server, client);
    findings.Expect(!server.State().at("ndr64").get<bool>(), "the calls came by NDR 2.0");
}

// A callback finds its call by its thread alone, since its cookie is another one.
void Callbacks(Findings& findings) {
    EchoServer server(findings);
    Heard heard;
    Client client(heard.Callbacks(), server.Endpoint());
    TryCallbacks(findings, server, client, heard);
    client.SetQuietFan(true, kCookie);
    findings.ExpectText(heard.Take(), ExpectedCallbacks(), "they come in a call with a flag too");

    zorvalis_client::Callbacks throwing;
    throwing.text = [](const std::string&, std::int32_t, std::int64_t) { throw 1; };
    throwing.integer = [](std::int32_t, std::int32_t, std::int64_t) {
        ::RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    };
    Client thrower(throwing, server.Endpoint());
    findings.ExpectNumber(StatusOf([&] { thrower.GetModelName(kCookie); }), 0,
                          "a call whose callbacks throw, as this and as another compiler does, ends well");
    findings.ExpectNumber(server.State().at("callback").get<int>(), 0, "the server does not see what they threw");
}

// Ends the step where the runtime did not take NDR64.
void NeedNdr64(Findings& findings, EchoServer& server, Client64& client) {
    client.GetModelName(kCookie);
    const bool is64 = server.State().at("ndr64").get<bool>();
    ImpossibleUnderWine(findings, !is64, "this runtime has no NDR64: a client that offers both calls by NDR 2.0");
    findings.Expect(is64, "a client that offers both calls by NDR64 (own-dispatch)");
}

constexpr char kNames[] =
    "the flag's is byte-in, the large text's text-and-buffer; the callbacks' are callback-text, callback-long, "
    "callback-byte and callback-call";

void Ndr64(Findings& findings) {
    NeedOfferOfNdr64(findings);
    EchoServer server(findings);
    Heard heard;
    Client64 client(heard.Callbacks(), server.Endpoint(), Offer::both);
    TryEveryCall(findings, server, client);  // by NDR 2.0 under Wine
    NeedNdr64(findings, server, client);
    findings.Saw(kNames);
    TryCallbacks(findings, server, client, heard);
    findings.ExpectNumber(Client64::Strays(), 0, "every callback came on the thread of its call");

    Heard other;
    Client old(other.Callbacks(), server.Endpoint());
    old.GetModelName(kCookie);
    findings.ExpectText(other.Take(), ExpectedCallbacks(), "a client of NDR 2.0 beside it gets its own (both-clients)");
    findings.Expect(!server.State().at("ndr64").get<bool>(), "by NDR 2.0");
    heard.Take();
    client.GetModelName(kCookie);
    findings.ExpectText(heard.Take(), ExpectedCallbacks(), "and the one of NDR64 after it (both-clients)");

    zorvalis_client::Callbacks refusing;
    refusing.integer = [](std::int32_t, std::int32_t, std::int64_t) { ::RpcRaiseException(ERROR_PORT_UNREACHABLE); };
    Client64 refuser(refusing, server.Endpoint(), Offer::both);
    findings.ExpectNumber(StatusOf([&] { refuser.GetModelName(kCookie); }), 0,
                          "a call ends well whose callback is refused");
    findings.Expect(server.State().at("callback").get<unsigned long>() != 0,
                    "the server sees the refusal: " + ErrorText(server.State().at("callback").get<unsigned long>()));
}

void OnlyNdr64(Findings& findings) {
    NeedOfferOfNdr64(findings);
    EchoServer server(findings);
    Heard heard;
    std::unique_ptr<Client64> client;
    const std::int32_t opened = StatusOf([&] {
        client = std::make_unique<Client64>(heard.Callbacks(), server.Endpoint(), Offer::onlyNdr64);
        client->GetModelName(kCookie);
    });
    const bool is64 = opened == 0 && server.State().at("ndr64").get<bool>();
    ImpossibleUnderWine(findings, !is64,
                        "this runtime has no NDR64: a client that offers nothing else reaches no "
                        "server, with status " +
                            std::to_string(opened));
    findings.ExpectNumber(opened, 0, "a client that offers NDR64 alone opens a context and calls (context-ordinal)");
    TryEveryCall(findings, server, *client);
    findings.Saw(kNames);
    TryCallbacks(findings, server, *client, heard);
    client.reset();
    findings.Expect(server.Until("closed", 1), "its context is closed when it closes it");
}

constexpr std::int32_t kSizes[] = {0, -1, -2, 0x100001, 0x7fffffff, INT32_MIN};

// The stubs of one syntax, past the library.
struct Stubs {
    decltype(call_RemoteOpen)* open;
    decltype(call_RemoteClose)* close;
    decltype(call_GetModelName)* call;
    decltype(call_GetUUID)* sized;
};
constexpr Stubs kNdr = {call_RemoteOpen, call_RemoteClose, call_GetModelName, call_GetUUID};
constexpr Stubs kNdr64 = {call64_RemoteOpen, call64_RemoteClose, call64_GetModelName, call64_GetUUID};

// A context that is not closed but let go, as the server may no longer have it.
class RawContext {
public:
    RawContext(Findings& findings, const Stubs& stubs, const std::string& endpoint) {
        const Binding binding(endpoint);
        const std::uint32_t status = zorvalis_rpc::Guarded([&] { stubs.open(binding.handle, &context); });
        if (status != 0) {
            findings.Fail("a context cannot be opened: " + ErrorText(status));
        }
    }
    ~RawContext() {
        if (context != nullptr) {
            zorvalis_rpc::Guarded([this] { ::RpcSsDestroyClientContext(&context); });
        }
    }
    RawContext(const RawContext&) = delete;
    RawContext& operator=(const RawContext&) = delete;

    ClientContext context = nullptr;
};

// The numbers come from Wine's runtime; of the sizes only that each is an error must hold.
void TryRefusals(Findings& findings, EchoServer& server, const Stubs& stubs) {
    RawContext first(findings, stubs, server.Endpoint());
    ClientContext none = nullptr;
    findings.ExpectNumber(zorvalis_rpc::Guarded([&] { stubs.call(nullptr, 1); }), RPC_X_SS_IN_NULL_CONTEXT,
                          "a call on a null context is refused");
    findings.ExpectNumber(zorvalis_rpc::Guarded([&] { stubs.close(&none); }), RPC_X_SS_IN_NULL_CONTEXT,
                          "to close a null context is refused");
    findings.ExpectNumber(zorvalis_rpc::Guarded([&] { stubs.call(first.context, 1); }), 0,
                          "a context that is open serves");
    server.Ask("forget 1");
    findings.ExpectNumber(zorvalis_rpc::Guarded([&] { stubs.call(first.context, 1); }), RPC_X_SS_CONTEXT_MISMATCH,
                          "a call on a context that the service has closed is refused");
    for (const std::int32_t size : kSizes) {
        const RawContext each(findings, stubs, server.Endpoint());  // Wine ends contexts with a fault
        wchar_t room[64] = {};
        const std::uint32_t status = zorvalis_rpc::Guarded([&] { stubs.sized(each.context, room, size, 1); });
        const bool isKnown = status == RPC_S_INVALID_BOUND || status == ERROR_NOT_ENOUGH_SERVER_MEMORY;
        findings.Expect(status != 0 && status != RPC_S_SERVER_UNAVAILABLE,
                        "room for " + std::to_string(size) + " characters is refused: " + ErrorText(status) +
                            (isKnown ? "" : ", where Wine has 1734 or 1130"));
    }
    const RawContext last(findings, stubs, server.Endpoint());
    findings.ExpectNumber(zorvalis_rpc::Guarded([&] { stubs.call(last.context, 1); }), 0, "the server serves on");
}

void Refusals(Findings& findings) {
    EchoServer server(findings);
    TryRefusals(findings, server, kNdr);
}

void Refusals64(Findings& findings) {
    NeedOfferOfNdr64(findings);
    {
        EchoServer server(findings);
        Client64 client({}, server.Endpoint(), Offer::both);
        NeedNdr64(findings, server, client);
    }
    EchoServer server(findings);
    TryRefusals(findings, server, kNdr64);
}

void FaultKeepsContext(Findings& findings) {
    EchoServer server(findings);
    Client client({}, server.Endpoint());
    findings.ExpectNumber(StatusOf([&] { client.BigDataServiceCall("throw"); }), RPC_S_CALL_FAILED,
                          "an error in a procedure ends its call with a fault");
    const std::int32_t after = StatusOf([&] { client.GetModelName(kCookie); });
    ImpossibleUnderWine(findings, after != 0,
                        "this runtime closes the connection with a fault: the next call got " +
                            ErrorText(static_cast<unsigned long>(after)));
    findings.ExpectNumber(after, 0, "the context is served after the fault");
    findings.ExpectNumber(server.State().at("closed").get<int>(), 0, "no context was closed");
}

// Whether Windows' runtime fills the room before the call is a fact for the report; the procedure gets zeros anyway.
void RoomIsZero(Findings& findings) {
    EchoServer server(findings);
    Client client({}, server.Endpoint());
    for (const std::int32_t size : {0x400, 0x8000, 0x100000}) {
        const std::string pages = client.BigDataServiceCall("pages", size);
        findings.Expect(pages.ends_with(" and zero"), "the procedure gets the room for " + std::to_string(size) +
                                                          " characters as zeros; its middle is " + pages);
    }
}

}  // namespace

std::vector<Step> WireSteps() {
    return {
        {"5.10", "By NDR 2.0 every procedure gets its arguments and answers", EveryCall, 60, nullptr, false},
        {"5.11", "By NDR 2.0 all callbacks come within their call, and may throw", Callbacks, 60, nullptr, false},
        {"5.12", "A client that offers both syntaxes calls by NDR64, beside one of NDR 2.0", Ndr64, 60, nullptr, false},
        {"5.13", "A client that offers NDR64 alone gets answers and callbacks", OnlyNdr64, 60, nullptr, false},
        {"5.14", "By NDR 2.0 null and closed contexts and impossible sizes are refused", Refusals, 60, nullptr, false},
        {"5.15", "By NDR64 null and closed contexts and impossible sizes are refused, too", Refusals64, 60, nullptr,
         false},
        {"5.16", "A fault ends its call and leaves the context open", FaultKeepsContext, 60, nullptr, false},
        {"5.17", "A procedure gets the room for its answer as zeros", RoomIsZero, 60, nullptr, false},
    };
}

}  // namespace zorvalis::acceptance
