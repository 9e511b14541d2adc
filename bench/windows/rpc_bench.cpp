// windows-rpc-bench: what a call of an application costs on Windows, or under Wine. The built service is driven as the
// tests drive it, by a stand-in of the service manager's pipe; plain_server.cpp gets the same load. Every answer of the
// service is checked. Callbacks, which Wine's runtime does not carry, are not measured.
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "measure.h"
#include "results.h"
#include "rpc/guard.h"
#include "sdk/context_windows.h"
#include "sdk/session.h"
#include "support/machine.h"
#include "windows/service_process.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using zorvalis_client::Context;

namespace {

// What a client asks for in turn, and a piece of the answer.
struct CallKind {
    const char* name;
    const wchar_t* input;
    const wchar_t* answer;
};
constexpr CallKind kCalls[] = {
    {"the version", LR"({"function":9,"version":1})", L"2.0.6.0"},
    {"the device's number", LR"({"function":11,"version":1})", L"Success"},
    {"no such function", LR"({"function":99,"version":1})", L"Function not supported"},
    {"the model, of the hardware", LR"({"function":0,"version":1})", L"Success"},
    {"no JSON", L"no JSON", L""},
};
constexpr int kMost = 4096;  // characters of an answer
constexpr int kClients[] = {1, 4, 16, 64};
constexpr int kCallsOfALoad = 8000, kCallsOfAKind = 1000, kCallsAtLast = 24000;

struct Load {
    double seconds = 0;
    std::vector<double> milliseconds{};  // of each call, sorted

    double Rate() const { return static_cast<double>(milliseconds.size()) / seconds; }
    double Share(double part) const {
        return milliseconds[static_cast<std::size_t>(static_cast<double>(milliseconds.size() - 1) * part)];
    }
};

// One client's calls, from the kind `first` on in turn, or always that kind.
std::vector<double> CallInTurn(const Context& context, int calls, std::size_t first, bool always, bool checks) {
    std::vector<wchar_t> output(kMost);
    std::vector<double> milliseconds;
    for (std::size_t i = 0; i < static_cast<std::size_t>(calls); ++i) {
        const CallKind& call = kCalls[(first + (always ? 0 : i)) % std::size(kCalls)];
        const auto start = Clock::now();
        const auto status = zorvalis_rpc::Guarded(
            [&] { call_BigDataServiceCall(context.Handle(), call.input, output.data(), kMost, 0); });
        milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        const std::wstring answer = output.data();
        if (status != 0 ||
            (checks && (answer.empty() != (*call.answer == L'\0') || answer.find(call.answer) == std::wstring::npos))) {
            std::fprintf(stderr, "%s: status %u\n", call.name, static_cast<unsigned>(status));
            std::exit(1);
        }
    }
    return milliseconds;
}

// Each client is a thread with a context of its own; all are open before the first call.
Load Run(const std::string& endpoint, int clients, int calls, bool checks) {
    std::vector<std::unique_ptr<Context>> contexts;
    for (int i = 0; i < clients; ++i) {
        contexts.push_back(std::make_unique<Context>());
        contexts.back()->Open(endpoint);
    }
    std::vector<std::vector<double>> taken(contexts.size());
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (std::size_t i = 0; i < contexts.size(); ++i) {
        threads.emplace_back([&, i] { taken[i] = CallInTurn(*contexts[i], calls, i, false, checks); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Load load{std::chrono::duration<double>(Clock::now() - start).count()};
    for (const auto& one : taken) {
        load.milliseconds.insert(load.milliseconds.end(), one.begin(), one.end());
    }
    std::sort(load.milliseconds.begin(), load.milliseconds.end());
    return load;
}

// Milliseconds, the median of one client that asks for the same each time.
double CostOf(const std::string& endpoint, std::size_t kind, bool checks) {
    Context context;
    context.Open(endpoint);
    std::vector<double> all = CallInTurn(context, kCallsOfAKind, kind, true, checks);
    std::sort(all.begin(), all.end());
    return all[all.size() / 2];
}

void AwaitServer(const std::string& endpoint) {
    for (int tries = 0; tries < 600; ++tries) {
        try {
            Context().Open(endpoint);
            return;
        } catch (const std::exception&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    throw std::runtime_error("nobody serves the endpoint " + endpoint);
}

// Committed, MiB, when the threads of the last clients have had time to end.
double MemoryOf(HANDLE process) {
    std::this_thread::sleep_for(std::chrono::seconds(3));
    PROCESS_MEMORY_COUNTERS counters{};
    ::GetProcessMemoryInfo(process, &counters, sizeof counters);
    return static_cast<double>(counters.PagefileUsage) / (1 << 20);
}

// One of the two that are measured, and its side.
struct Side {
    std::string endpoint;  // empty for the service's own
    HANDLE process;
    bool checks;                  // the answers
    std::vector<Load> loads{};    // by kClients
    std::vector<double> kinds{};  // by kCalls
    double idle = 0, before = 0, after = 0;
};

// Side by side, so that what else the machine does meets both.
void Measure(Side& service, Side& plain) {
    for (Side* side : {&service, &plain}) {
        AwaitServer(side->endpoint);
        side->idle = MemoryOf(side->process);
    }
    for (const int clients : kClients) {
        for (Side* side : {&service, &plain}) {
            side->loads.push_back(Run(side->endpoint, clients, kCallsOfALoad / clients, side->checks));
        }
    }
    for (std::size_t kind = 0; kind < std::size(kCalls); ++kind) {
        for (Side* side : {&service, &plain}) {
            side->kinds.push_back(CostOf(side->endpoint, kind, side->checks));
        }
    }
    for (Side* side : {&service, &plain}) {
        const int most = *std::rbegin(kClients);
        side->before = MemoryOf(side->process);
        Run(side->endpoint, most, kCallsAtLast / most, side->checks);
        side->after = MemoryOf(side->process);
    }
}

// A process that ends with this object.
class PlainServer {
public:
    explicit PlainServer(const std::string& endpoint) {
        std::string command = "\"" + (BuildFolder() / "bench" / "plain-rpc-server.exe").string() + "\" " + endpoint;
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        if (!::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                              &process_)) {
            throw std::runtime_error("plain-rpc-server does not start");
        }
    }
    ~PlainServer() {
        ::TerminateProcess(process_.hProcess, 0);
        ::CloseHandle(process_.hThread);
        ::CloseHandle(process_.hProcess);
    }
    PlainServer(const PlainServer&) = delete;
    PlainServer& operator=(const PlainServer&) = delete;

    HANDLE Handle() const { return process_.hProcess; }

private:
    PROCESS_INFORMATION process_{};
};

std::string Times(double value, double plain) {
    return Digits(value / plain, 1);
}

void Report(const Side& service, const Side& plain) {
    Results results("5-calls-windows", "Calls on Windows, under Wine",
                    {"calls of applications", "a second", "p50 ms", "p99 ms", "bare: a second", "p50 ms", "p99 ms",
                     "times p50", "times p99"});
    results.Plot("A call under Wine by clients at once", "clients", "ms, median");
    for (std::size_t i = 0; i < std::size(kClients); ++i) {
        const Load &own = service.loads[i], &bare = plain.loads[i];
        results.Row({kClients[i] == 1 ? "one client" : std::to_string(kClients[i]) + " clients", Digits(own.Rate(), 0),
                     Digits(own.Share(0.5), 3), Digits(own.Share(0.99), 3), Digits(bare.Rate(), 0),
                     Digits(bare.Share(0.5), 3), Digits(bare.Share(0.99), 3), Times(own.Share(0.5), bare.Share(0.5)),
                     Times(own.Share(0.99), bare.Share(0.99))});
        results.Point("service", kClients[i], own.Share(0.5));
        results.Point("bare RPC server", kClients[i], bare.Share(0.5));
    }
    for (std::size_t kind = 0; kind < std::size(kCalls); ++kind) {
        results.Row({std::string("one client: ") + kCalls[kind].name, "", Digits(service.kinds[kind], 3), "", "",
                     Digits(plain.kinds[kind], 3), "", Times(service.kinds[kind], plain.kinds[kind]), ""});
    }
    results.Text(
        "The bare server has the same interface, stubs and runtime, and a constant answer. Clients are threads of one "
        "process. Wine's runtime carries no callbacks and Wine keeps no event log, so getters and the log's two "
        "entries a call are not in these figures.");
    const auto memory = [](const Side& side) {
        return Digits(side.idle, 1) + " MiB at its start, " + Digits(side.before, 1) + " after these calls, " +
               Digits(side.after, 1) + " after " + std::to_string(kCallsAtLast) + " more";
    };
    results.Text("The service has committed " + memory(service) + "; the bare server " + memory(plain) + ".");
}

}  // namespace

fs::path BuildFolder() {
    wchar_t own[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, own, MAX_PATH);
    return fs::path(own).parent_path().parent_path();
}

int main() {
    try {
        TestMachine machine;
        machine.install_library();
        machine.ready();
        machine.hardware(R"({"WMIGetSystemChassisTypes": "Notebook", "WMIGetModelName": "ZX",
                             "GPNV_RandomUUID": "00112233-4455-6677-8899-aabbccddeeff"})");
        fs::copy_file(built("ZorvalisWinService.exe"), machine.executable());
        const Doubles doubles(machine.bin_folder());
        WatchedProcess(machine.executable(), "-install").wait();
        ServiceProcess service(machine.executable());
        service.start();
        const std::string endpoint = "ZorvPlain" + std::to_string(::GetCurrentProcessId());
        const PlainServer server(endpoint);
        Side own{"", service.process(), true}, plain{endpoint, server.Handle(), false};
        Measure(own, plain);
        Report(own, plain);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "windows-rpc-bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
