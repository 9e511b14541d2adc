// The endpoint of the service as it was installed, which a Windows without app containers cannot run.
#include <windows.h>

#include <rpc.h>

#include <thread>

#include "base/json.h"
#include "differences.h"
#include "endpoint_client.h"
#include "endpoint_server.h"
#include "kit.h"
#include "part.h"
#include "platform/text.h"
#include "platform/windows/handles.h"
#include "polling.h"
#include "product_service.h"
#include "rpc/guard.h"
#include "saved_value.h"
#include "steps_endpoint.h"
#include "windows/false_service.h"

namespace zorvalis::acceptance {
namespace {

using zorvalis_client::Client;
using Offer = Client64::Offer;

constexpr char kEndpoint[] = "ZorvHelpRpcEndpoint";
constexpr std::int64_t kCookie = INT64_MIN;
constexpr char kVersionCall[] = R"({"function":9,"version":1})";

std::string Asked(int function) {
    return R"({"function":)" + std::to_string(function) + R"(,"version":1})";
}

// The value of a function's answer, or its words when it has none.
std::string ValueOf(auto& client, int function) {
    const std::string answer = client.BigDataServiceCall(Asked(function), 1 << 16);
    try {
        const std::string parameter = Json::parse(answer).at("parameter").template get<std::string>();
        return Json::parse(parameter).at("p1").template get<std::string>();
    } catch (const std::exception&) {
        return "no value in: " + answer;
    }
}

constexpr wchar_t kProductKey[] = L"SOFTWARE\\Zorv\\Zorvcore\\Zorvalis";
constexpr wchar_t kMainSwitch[] = L"MainSwitch";

void RestoreSwitch() {
    SavedValue::Restore(kProductKey, kMainSwitch);
}

// Every procedure once. What a direct getter calls back is compared with the JSON function that answers the same. The
// setters set what is set already.
template <class Caller>
void TryProduct(Findings& findings, Caller& client, Heard& heard) {
    Differences getters, setters, answers;
    const std::string cookie = " " + std::to_string(kCookie);
    const auto get = [&](const char* name, const std::string& kind, int function, void (Caller::*call)(std::int64_t)) {
        const std::string value = ValueOf(client, function);
        heard.Take();
        (client.*call)(kCookie);
        getters.Compare(name, heard.Take(), kind + " " + value + " " + std::to_string(function) + cookie);
        return value;
    };
    get("GetModelName", "text", 0, &Caller::GetModelName);
    get("GetSerialNumber", "text", 1, &Caller::GetSerialNumber);
    get("GetFamilyName", "text", 2, &Caller::GetFamilyName);
    get("GetChassisTypes", "text", 12, &Caller::GetChassisTypes);
    get("GetProductName", "text", 13, &Caller::GetProductName);
    get("GetBatteryHealthMode", "integer", 3, &Caller::GetBatteryHealthMode);
    const std::string fan = get("GetQuietFanMode", "integer", 4, &Caller::GetQuietFanMode);
    get("GetSystemInfoData", "text", 5, &Caller::GetSystemInfoData);
    get("GetVersionString", "text", 9, &Caller::GetVersionString);
    get("GetMainSwitchByUser", "flag", 11, &Caller::GetMainSwitchByUser);
    getters.Report(findings, "ten getters call back what the JSON functions answer");

    const SavedValue saved(kProductKey, kMainSwitch);
    const auto set = [&](const char* name, const std::string& wanted, auto call) {
        heard.Take();
        call();
        setters.Compare(name, heard.Take(), wanted.empty() ? "" : wanted + cookie);
    };
    // A mode that nobody knows is called back and not set.
    set("SetBatteryHealth", "integer 1 6", [&] { client.SetBatteryHealth(1, kCookie); });
    set("SetQuietFan", fan == "1" ? "flag 1 7" : "flag 0 7", [&] { client.SetQuietFan(fan == "1", kCookie); });
    set("SetMainSwitchByUser", "flag 1 10", [&] { client.SetMainSwitchByUser(true, kCookie); });
    set("GetMainSwitchByUser", "flag 1 11", [&] { client.GetMainSwitchByUser(kCookie); });
    if (!Kept(kOwnInstallation).empty()) {  // whose hardware library is the stand-in
        set("SetAppFolder", "", [&] { client.SetAppFolder("C:\\zorv-acceptance", kCookie); });
    }
    setters.Report(findings, "the setters call back what they set");

    client.GetTestDataFunc(41, kCookie);
    const std::string test = heard.Take();
    findings.Expect(test == "testData -1" + cookie || test == "testData 42" + cookie,
                    "GetTestDataFunc calls back: " + test);
    answers.Compare(
        "SetMyZorvPP with a refusal",
        client.SetMyZorvPP("zorv-acceptance", "zorv-acceptance", "1", "2026-01-02 03:04:05.006", false) ? "1" : "0",
        "0");
    answers.Compare("GetUUID", client.GetUUID(64), ValueOf(client, 16));
    const std::string version = client.BigDataServiceCall(kVersionCall, 4096);
    const auto size = static_cast<std::int32_t>(version.size());
    answers.Compare("with just enough room", client.BigDataServiceCall(kVersionCall, size + 1), version);
    answers.Compare("without room for the terminator", client.BigDataServiceCall(kVersionCall, size), "");
    answers.Report(findings, "the procedures with an answer give it");
}

void EveryProcedure(Findings& findings) {
    StartProduct(findings);
    Heard heard;
    Client client(heard.Callbacks(), Patient());
    findings.Saw(
        "the library has opened a context at LocalSystem's endpoint, with an authentication that nobody registered");
    TryProduct(findings, client, heard);
}

void JsonFunctions(Findings& findings) {
    StartProduct(findings);
    Client client({}, Patient());
    Differences statuses;
    for (const int function : {0, 1, 2, 3, 4, 5, 9, 11, 12, 13, 16, 18}) {
        const Json answer = Json::parse(client.BigDataServiceCall(Asked(function), 1 << 16), nullptr, false);
        statuses.Compare(std::to_string(function), answer.value("status", "none"), "Success");
        statuses.Compare("its number", std::to_string(answer.value("function", -2)), std::to_string(function));
    }
    statuses.Report(findings, "twelve functions that only read answer with success");
    Differences refused;
    const auto refuse = [&](const std::string& call, const std::string& words) {
        const Json answer = Json::parse(client.BigDataServiceCall(call), nullptr, false);
        refused.Compare(call, answer.value("parameter", "none") + "/" + answer.value("status", "none"),
                        words + "/Error");
    };
    refuse(Asked(6), "Function not supported");
    refuse(Asked(19), "Function not supported");
    refuse(R"({"function":9,"version":2})", "Version not supported");
    refuse(R"({"function":9})", "Version unavailable");
    refuse(Asked(8), "Parameter not supported");
    refused.Report(findings, "calls that it cannot do get their words");
}

// A client of NDR64 knows no owner: it only has to be served.
void InstalledNdr64(Findings& findings) {
    NeedOfferOfNdr64(findings);
    StartProduct(findings);
    Client({}, Patient());
    Heard heard;
    std::unique_ptr<Client64> client;
    const std::int32_t status =
        StatusOf([&] { client = std::make_unique<Client64>(heard.Callbacks(), kEndpoint, Offer::onlyNdr64); });
    if (status != 0) {
        findings.Fail("a client that offers NDR64 alone opens a context: " +
                      ErrorText(static_cast<unsigned long>(status)));
    }
    TryProduct(findings, *client, heard);
    findings.ExpectNumber(Client64::Strays(), 0, "every callback came on the thread of its call");
}

// Each client gets its own callbacks, by its cookies, while all others call.
void BothAtOnce(Findings& findings) {
    StartProduct(findings);
    Client({}, Patient());
    constexpr int kThreads = 8, kCalls = 100;
    std::atomic<int> wrong = 0, failed = 0;
    std::string version;
    {
        Heard heard;
        Client(heard.Callbacks(), Patient()).GetVersionString(0);
        version = heard.Take();
        version = version.substr(0, version.rfind(" ") + 1);  // without the cookie
    }
    const auto call = [&](auto& client, Heard& heard, int thread) {
        for (int i = 0; i < kCalls; ++i) {
            const int cookie = thread * kCalls + i;
            client.GetVersionString(cookie);
            wrong += heard.Take() == version + std::to_string(cookie) ? 0 : 1;
            wrong += client.GetUUID(64).size() == 36 ? 0 : 1;
        }
    };
    std::vector<std::thread> threads;
    for (int thread = 1; thread <= kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            failed += StatusOf([&] {
                          Heard heard;
                          if (thread % 2 == 0) {
                              Client client(heard.Callbacks(), Patient());
                              call(client, heard, thread);
                          } else {
                              Client64 client(heard.Callbacks(), kEndpoint, Offer::both);
                              call(client, heard, thread);
                          }
                      }) == 0
                          ? 0
                          : 1;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    findings.Expect(!version.empty(), "a client hears the version: " + version);
    findings.ExpectNumber(failed, 0, "no call of eight clients at once, half by each syntax, fails");
    findings.ExpectNumber(wrong, 0, "each of 1600 calls gets its own answer or callback (both-clients)");
}

DWORD HandlesOf(HANDLE process) {
    DWORD count = 0;
    ::GetProcessHandleCount(process, &count);
    return count;
}

// By calls that read nothing from the registry, whose handles the service keeps on purpose.
void ManyCalls(Findings& findings) {
    StartProduct(findings);
    const platform::OwnedHandle service = ProductProcess(PROCESS_QUERY_LIMITED_INFORMATION);
    const auto call = [&](int count) {
        Client client({}, Patient());
        for (int i = 0; i < count; ++i) {
            client.GetVersionString(i);
            client.BigDataServiceCall(kVersionCall);
            Client({}, Patient()).GetVersionString(i);
        }
    };
    call(50);
    const DWORD before = HandlesOf(service.get()), own = HandlesOf(::GetCurrentProcess());
    call(400);
    constexpr int kMost = 50;
    int grown = 0, ownGrown = 0;
    Until(10, [&] {  // both let go what they had for the last calls a little later
        grown = static_cast<int>(HandlesOf(service.get())) - static_cast<int>(before);
        ownGrown = static_cast<int>(HandlesOf(::GetCurrentProcess())) - static_cast<int>(own);
        return grown < kMost && ownGrown < kMost;
    });
    findings.Expect(before != 0 && grown < kMost, "the service's " + std::to_string(before) + " handles grow by " +
                                                      std::to_string(grown) + " in 1200 calls and 400 contexts");
    findings.Expect(ownGrown < kMost, "the client's grow by " + std::to_string(ownGrown));
}

RPC_STATUS Listens() {
    const Binding binding(kEndpoint);
    return binding.status != RPC_S_OK ? binding.status : ::RpcMgmtIsServerListening(binding.handle);
}

// Starts the service again, however the step ends.
struct Restarted {
    Restarted() = default;
    ~Restarted() {
        const OwnedService service = OpenProduct(SERVICE_START);
        ::StartServiceW(service.get(), 0, nullptr);
    }
    Restarted(const Restarted&) = delete;
    Restarted& operator=(const Restarted&) = delete;
};

void StartAgain() {
    if (!Kept(kOwnInstallation).empty()) {
        const Restarted restarted;
    }
}

void StopAndStart(Findings& findings) {
    const Restarted restarted;
    StartProduct(findings);
    Client old({}, Patient());
    findings.ExpectNumber(Listens(), RPC_S_OK, "the endpoint is seen to listen");
    StopProduct(findings);
    findings.ExpectNumber(StatusOf([] { Client({}, {}); }), ZORVALIS_NO_SERVICE, "without the service nobody listens");
    findings.Expect(Listens() != RPC_S_OK, "which is seen: " + ErrorText(static_cast<unsigned long>(Listens())));
    const std::int32_t lost = StatusOf([&] { old.GetUUID(64); });
    findings.Expect(lost != 0, "a client of before gets an error: " + std::to_string(lost));
    StartProduct(findings);
    findings.ExpectNumber(StatusOf([] { Client({}, Patient()).GetUUID(64); }), 0,
                          "a new one is served when it runs again");
    const std::int32_t after = StatusOf([&] { old.GetUUID(64); });
    findings.Expect(after != 0, "the old one is of no use any more: " + std::to_string(after));
}

// The words: the endpoint, and the gate's that ends it. The exit code is how many calls it got.
int ServeFalsely(const std::vector<std::string>& words) {
    const false_service::Server server(words.at(0));
    if (server.status() != RPC_S_OK) {
        return -static_cast<int>(server.status());
    }
    TellReady();
    Gate::WaitFor(words.at(1), 60);
    return false_service::calls;
}

const Part kServeFalsely("rpc-serve-falsely", ServeFalsely);

// In the service's place, by an administrator: only what the library asks of the owner tells the two apart.
void WrongOwner(Findings& findings) {
    const Restarted restarted;
    StartProduct(findings);
    findings.ExpectNumber(StatusOf([] { Client({}, Patient()); }), 0,
                          "the library takes the service, which is LocalSystem");
    StopProduct(findings);
    Gate gate;
    PartProcess server(findings, kServeFalsely.name, {kEndpoint, gate.Name()});
    {
        const Binding binding(kEndpoint);
        ClientContext context = nullptr;
        findings.ExpectNumber(zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding.handle, &context); }), 0,
                              "who asks for no owner is served by an administrator in its place");
    }
    const std::int32_t status = StatusOf([] { Client({}, {}); });
    findings.Expect(status != 0, "the library refuses that one: " + ErrorText(static_cast<unsigned long>(status)) +
                                     " (5 and 1825 are what the documentation has)");
    gate.Open();
    findings.ExpectNumber(server.CodeOf(20), 1, "which has heard the one call of before");
}

void SecondOnItsEndpoint(Findings& findings) {
    StartProduct(findings);
    Client({}, Patient());
    wchar_t protocol[] = L"ncalrpc", endpoint[] = L"ZorvHelpRpcEndpoint";
    const RPC_STATUS status = ::RpcServerUseProtseqEpW(reinterpret_cast<RPC_WSTR>(protocol), 10,
                                                       reinterpret_cast<RPC_WSTR>(endpoint), nullptr);
    findings.ExpectNumber(status, RPC_S_DUPLICATE_ENDPOINT, "a second process on the service's endpoint is refused");
    findings.ExpectNumber(StatusOf([] { Client({}, {}).GetUUID(64); }), 0, "the service serves on");
}

// What the endpoint mapper has for the interface.
void MappedProtocols(Findings& findings) {
    StartProduct(findings);
    Client({}, Patient());
    RPC_IF_ID interfaceId{};
    ::RpcIfInqId(call_Zorvalis_v1_0_c_ifspec, &interfaceId);
    RPC_EP_INQ_HANDLE inquiry = nullptr;
    if (const RPC_STATUS status =
            ::RpcMgmtEpEltInqBegin(nullptr, RPC_C_EP_MATCH_BY_IF, &interfaceId, RPC_C_VERS_ALL, nullptr, &inquiry);
        status != RPC_S_OK) {
        findings.Fail("the endpoint mapper cannot be asked: " + ErrorText(static_cast<unsigned long>(status)));
    }
    int local = 0;
    std::string others;
    RPC_BINDING_HANDLE binding = nullptr;
    while (::RpcMgmtEpEltInqNextW(inquiry, &interfaceId, &binding, nullptr, nullptr) == RPC_S_OK) {
        RPC_WSTR text = nullptr;
        ::RpcBindingToStringBindingW(binding, &text);
        const std::string words = platform::to_utf8(reinterpret_cast<wchar_t*>(text));
        ::RpcStringFreeW(&text);
        ::RpcBindingFree(&binding);
        const bool isLocal = words.starts_with("ncalrpc:");
        local += isLocal ? 1 : 0;
        others += isLocal ? "" : " " + words;
        findings.Saw("registered: " + words);
    }
    ::RpcMgmtEpEltInqDone(&inquiry);
    findings.Expect(local > 0 && others.empty(),
                    "the interface is registered for ncalrpc and for nothing else" + others);
}

}  // namespace

std::vector<Step> InstalledEndpointSteps() {
    return {
        {"5.1", "The service answers every procedure, by NDR 2.0 and with its callbacks", EveryProcedure, 120,
         RestoreSwitch},
        {"5.2", "The service answers the JSON functions", JsonFunctions, 120},
        {"5.3", "The service answers every procedure by NDR64, with its callbacks", InstalledNdr64, 120, RestoreSwitch},
        {"5.4", "Clients of both syntaxes call the service at once", BothAtOnce, 120},
        {"5.5", "Many calls leave no handles behind in the service", ManyCalls, 120},
        {"5.6", "A client hears that the service has ended, and a new one finds it again", StopAndStart, 120,
         StartAgain},
        {"5.7", "Only a service of LocalSystem is taken for it", WrongOwner, 120, StartAgain},
        {"5.8", "A second process on the service's endpoint is refused", SecondOnItsEndpoint},
        {"5.9", "The service's interface is offered to this machine alone", MappedProtocols},
    };
}

}  // namespace zorvalis::acceptance
