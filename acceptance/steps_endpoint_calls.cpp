// Many calls, calls that are given up, and clients that die. The server is the kit's own, with the product's endpoint.
#include <windows.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "endpoint_server.h"
#include "kit.h"
#include "part.h"
#include "polling.h"
#include "rpc/guard.h"
#include "steps_endpoint.h"

namespace zorvalis::acceptance {
namespace {

using std::chrono::milliseconds;
using zorvalis_client::Client;

constexpr int kTogether = 8;

// How many of the calls were in the server at once. Each waits there for the others, so many seconds at most.
int MostAtOnce(EchoServer& server, const std::vector<Client*>& clients, int seconds) {
    std::vector<std::future<void>> calls;
    for (Client* client : clients) {
        calls.push_back(std::async(std::launch::async, [=] {
            client->BigDataServiceCall("meet " + std::to_string(kTogether) + " " + std::to_string(seconds));
        }));
    }
    for (std::future<void>& call : calls) {
        call.get();
    }
    return server.State().at("most").get<int>();
}

void OnOneContext(Findings& findings) {
    EchoServer server(findings);
    Client client({}, server.Endpoint());
    const int most = MostAtOnce(server, std::vector<Client*>(kTogether, &client), 5);
    ImpossibleUnderWine(findings, most == 1, "this runtime runs the calls of one context in turn");
    findings.ExpectNumber(most, kTogether, "calls on one context run at once");
}

void OnManyContexts(Findings& findings) {
    EchoServer server(findings);
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<Client*> all;
    for (int i = 0; i < kTogether; ++i) {
        clients.push_back(std::make_unique<Client>(zorvalis_client::Callbacks(), server.Endpoint()));
        all.push_back(clients.back().get());
    }
    findings.ExpectNumber(MostAtOnce(server, all, 30), kTogether, "calls of many clients run at once");
    clients.clear();
    findings.Expect(server.Until("closed", kTogether), "each context is closed when its client goes");
}

// In a process of its own, since the client's own runtime may not survive it: two threads close one context.
int CloseTwice(const std::vector<std::string>& words) {
    ::SetErrorMode(SEM_NOGPFAULTERRORBOX);
    ClientContext first = nullptr;
    const Binding binding(words.at(0));
    if (const std::uint32_t status = zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding.handle, &first); })) {
        return static_cast<int>(status);
    }
    TellReady();
    ClientContext second = first;
    auto other = std::async(std::launch::async, [&] { zorvalis_rpc::Guarded([&] { call_RemoteClose(&second); }); });
    zorvalis_rpc::Guarded([&] { call_RemoteClose(&first); });
    other.get();
    return 0;
}

const Part kCloseTwice("rpc-close-twice", CloseTwice);

void TwoCloses(Findings& findings) {
    EchoServer server(findings);
    server.Ask("slow");
    constexpr int kTimes = 10;
    for (int i = 1; i <= kTimes; ++i) {
        PartProcess child(findings, kCloseTwice.name, {server.Endpoint()});
        const int code = child.CodeOf(20);
        if (code == -1) {
            findings.Fail("the client's two closes do not return");
        }
        if (code != 0) {
            findings.Saw("the client ended with " + ErrorText(static_cast<unsigned long>(code)));
        }
        if (!server.Until("closed", i)) {
            findings.Fail("its context was not closed");
        }
    }
    findings.ExpectNumber(server.State().at("closed").get<int>(), kTimes,
                          "each context was closed once, and not again");
}

int HoldContext(const std::vector<std::string>& words) {
    const Client client({}, words.at(0));
    TellReady();
    ::Sleep(60000);
    return 0;
}

const Part kHoldContext("rpc-hold-context", HoldContext);

void KilledClient(Findings& findings) {
    EchoServer server(findings);
    PartProcess child(findings, kHoldContext.name, {server.Endpoint()});
    findings.ExpectNumber(server.State().at("closed").get<int>(), 0, "the client's context is open");
    child.Kill();
    findings.Expect(server.Until("closed", 1), "the context of a client that was killed is closed");
}

void GivenUp(Findings& findings) {
    EchoServer server(findings);
    Gate gate;
    auto client = std::make_unique<Client>(zorvalis_client::Callbacks(), server.Endpoint());
    Client other({}, server.Endpoint());
    auto cancelled =
        std::async(std::launch::async, [&] { return StatusOf([&] { client->BigDataServiceCall(gate.Words()); }); });
    auto answered = std::async(std::launch::async, [&] { return other.BigDataServiceCall(gate.Words()); });
    findings.Expect(gate.HoldsOneMore(20000) && gate.HoldsOneMore(20000),
                    "the calls of two clients wait in the server");
    client->Cancel();
    findings.ExpectNumber(cancelled.get(), ZORVALIS_CANCELLED, "a call that is given up returns at once");
    const auto before = std::chrono::steady_clock::now();
    client.reset();
    findings.Expect(std::chrono::steady_clock::now() - before < std::chrono::seconds(10),
                    "its client is closed while the call is still in the server");
    Client limited({}, server.Endpoint());
    limited.SetLimit(milliseconds(200));
    findings.ExpectNumber(StatusOf([&] { limited.BigDataServiceCall(gate.Words()); }), ZORVALIS_TIMED_OUT,
                          "a call with a time limit returns when it has passed");
    findings.ExpectNumber(server.State().at("closed").get<int>(), 0, "no context is closed under a call");
    gate.Open();
    findings.ExpectText(answered.get(), "late", "the other client's call gets its answer");
    findings.Expect(server.Until("closed", 1), "the context of the call that was given up is closed after it");
    limited.SetLimit(milliseconds(0));
    findings.ExpectNumber(StatusOf([&] { limited.GetUUID(64); }), 0,
                          "a client serves on after a call that was given up");
}

DWORD OwnHandles() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

// The first calls make what the runtime and the pool keep.
void ThousandCalls(Findings& findings) {
    EchoServer server(findings);
    Client client({}, server.Endpoint());
    constexpr int kMore = 20;
    int wrong = 0;
    const auto call = [&](int count) {
        for (int i = 0; i < count; ++i) {
            wrong += client.BigDataServiceCall("text " + std::to_string(i)).ends_with(std::to_string(i)) ? 0 : 1;
            Client({}, server.Endpoint()).GetModelName(i);
        }
    };
    call(100);
    const DWORD before = OwnHandles();
    const auto served = server.State().at("handles").get<int>();
    call(500);
    findings.ExpectNumber(wrong, 0,
                          "each of 600 calls gets its own answer, beside 600 contexts that are opened and closed");
    // Both let go what they had for the last calls a little later.
    int more = 0, moreServed = 0;
    Until(10, [&] {
        more = static_cast<int>(OwnHandles()) - static_cast<int>(before);
        moreServed = server.State().at("handles").get<int>() - served;
        return more < kMore && moreServed < kMore;
    });
    findings.Expect(more < kMore, "the client's handles grow by " + std::to_string(more) + " in 1000 calls");
    findings.Expect(moreServed < kMore, "the server's grow by " + std::to_string(moreServed));
}

// More calls than Windows' pool has threads for, unless the application changes that. Each has a context of its own,
// since Wine runs the calls of one in turn.
void FullPool(Findings& findings) {
    EchoServer server(findings);
    constexpr std::size_t kCalls = 520;
    Gate gate;
    std::vector<std::unique_ptr<Client>> clients(kCalls);
    for (auto& client : clients) {
        client = std::make_unique<Client>(zorvalis_client::Callbacks(), server.Endpoint());
    }
    std::atomic<int> answered = 0;
    std::vector<std::thread> threads;
    for (auto& client : clients) {
        threads.emplace_back([&gate, &answered, own = client.get()] {
            StatusOf([&] { answered += own->BigDataServiceCall(gate.Words()) == "late" ? 1 : 0; });
        });
    }
    std::size_t held = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);  // the first waits no longer than 30
    while (held < kCalls && std::chrono::steady_clock::now() < end && gate.HoldsOneMore(2000)) {
        ++held;
    }
    gate.Open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    findings.Saw(std::to_string(held) + " of " + std::to_string(kCalls) + " calls were in the server at once");
    findings.ExpectNumber(answered, kCalls,
                          "every call gets its answer, those without a thread when others have ended");
}

}  // namespace

std::vector<Step> CallSteps() {
    return {
        {"5.20", "Several calls on one context run at once", OnOneContext, 60, nullptr, false},
        {"5.21", "Calls of several clients run at once", OnManyContexts, 60, nullptr, false},
        {"5.22", "A context that two threads close at once is closed once", TwoCloses, 90, nullptr, false},
        {"5.23", "The context of a client that was killed is closed", KilledClient, 60, nullptr, false},
        {"5.24", "A call may be given up, and its late answer harms nobody", GivenUp, 90, nullptr, false},
        {"5.25", "A thousand calls leave no handles behind", ThousandCalls, 90, nullptr, false},
        {"5.26", "More calls than the pool has threads are answered in turn", FullPool, 90, nullptr, false},
    };
}

}  // namespace zorvalis::acceptance
