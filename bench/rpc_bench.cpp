// rpc-bench: what a call of an application costs. One to 4000 connections make calls to the running service, four in
// ten of them bad; plain_server.cpp gets the same load. Every answer of the service is checked. Then a thousand make
// 200,000 calls, twice: the memory is told, and it fails when the service has more descriptors after the second time.
#include <fcntl.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "base/json.h"
#include "measure.h"
#include "platform/stand_in/service_control.h"
#include "results.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

[[noreturn]] void Fail(const std::string& text) {
    std::fprintf(stderr, "rpc-bench: %s\n", text.c_str());
    std::exit(1);
}

// The calls that a client makes in turn. `answer` must stand in the answer; null for a getter, which is answered by one
// callback and a result of null.
struct CallKind {
    const char* method;
    const char* parameters;  // those after the context
    const char* answer;
};
constexpr CallKind kCalls[] = {
    {"BigDataServiceCall", R"("input":"{\"function\":9,\"version\":1}","outputSize":4096,"cookie":0)", "2.0.6.0"},
    {"GetVersionString", R"("cookie":7)", nullptr},
    {"BigDataServiceCall", R"("input":"{\"function\":11,\"version\":1}","outputSize":4096,"cookie":0)", "Success"},
    {"GetModelName", R"("cookie":7)", nullptr},
    {"BigDataServiceCall", R"("input":"{\"function\":99,\"version\":1}","outputSize":4096,"cookie":0)",
     "Function not supported"},
    {"BigDataServiceCall", R"("input":"{\"function\":0,\"version\":1}","outputSize":4096,"cookie":0)", "Success"},
    {"BigDataServiceCall", R"("input":"{\"function\":9,\"version\":2}","outputSize":4096,"cookie":0)",
     "Version not supported"},
    {"GetMainSwitchByUser", R"("cookie":7)", nullptr},
    {"BigDataServiceCall", R"("input":"no JSON","outputSize":4096,"cookie":0)", "\"output\":\"\""},
    {"GetNothing", R"("cookie":7)", "-32601"},
};

struct Load {
    double seconds = 0;
    std::vector<double> milliseconds;  // of each call, sorted

    double Rate() const { return static_cast<double>(milliseconds.size()) / seconds; }
    double Share(double part) const {
        return milliseconds[static_cast<std::size_t>(static_cast<double>(milliseconds.size() - 1) * part)];
    }
};

// A client with one call at a time. Without `checks` it takes any line for an answer: the plain server's are constant.
class Connection {
public:
    Connection(const std::string& path, std::size_t number, bool checks) : next_(number), checks_(checks) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            Fail("connection " + std::to_string(number) + ": " + std::strerror(errno));
        }
        Send("RemoteOpen", "");
        const std::string answer = ReceiveLine();
        context_ = checks ? zorvalis::ParseJson(answer)["result"]["context"].get<std::uint64_t>() : 0;
    }
    ~Connection() { close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int Socket() const { return socket_; }
    int Done() const { return done_; }

    void Call() {
        const CallKind& call = kCalls[next_ % std::size(kCalls)];
        start_ = Clock::now();
        Send(call.method, "\"context\":" + std::to_string(context_) + "," + call.parameters);
    }

    // Reads one line. True when it was the answer; then `milliseconds` is how long the call took.
    bool Take(double& milliseconds) {
        const std::string line = ReceiveLine();
        if (line.find("\"method\"") != std::string::npos) {
            ++callbacks_;
            return false;
        }
        milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start_).count();
        const CallKind& call = kCalls[next_++ % std::size(kCalls)];
        const bool direct = call.answer == nullptr;
        const char* const piece = direct ? R"("result":null)" : call.answer;
        if (checks_ && (line.find(piece) == std::string::npos || callbacks_ != (direct ? 1 : 0))) {
            Fail(std::string(call.method) + " {" + call.parameters + "} was answered with " + line + " after " +
                 std::to_string(callbacks_) + " callbacks");
        }
        callbacks_ = 0;
        ++done_;
        return true;
    }

    bool HasLine() const { return in_.find('\n') != std::string::npos; }

private:
    void Send(const std::string& method, const std::string& parameters) {
        const std::string line =
            R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":{)" + parameters + "}}\n";
        if (send(socket_, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
            Fail("a call cannot be sent");
        }
    }
    std::string ReceiveLine() {
        while (!HasLine()) {
            char bytes[8192];
            const ssize_t size = recv(socket_, bytes, sizeof bytes, 0);
            if (size <= 0) {
                Fail("a connection was cut off");
            }
            in_.append(bytes, static_cast<std::size_t>(size));
        }
        std::string line = in_.substr(0, in_.find('\n'));
        in_.erase(0, line.size() + 1);
        return line;
    }

    std::size_t next_;
    bool checks_;
    int socket_ = -1;
    int done_ = 0, callbacks_ = 0;
    std::uint64_t context_ = 0;
    std::string in_;
    Clock::time_point start_;
};

// All connections are open before the first call, and each makes its next call when the last one is answered.
Load Run(const std::string& path, int clients, int calls, bool checks) {
    std::vector<std::unique_ptr<Connection>> connections;
    const int set = epoll_create1(EPOLL_CLOEXEC);
    for (int i = 0; i < clients; ++i) {
        connections.push_back(std::make_unique<Connection>(path, static_cast<std::size_t>(i), checks));
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = connections.back().get();
        epoll_ctl(set, EPOLL_CTL_ADD, connections.back()->Socket(), &event);
    }
    Load load;
    const auto start = Clock::now();
    for (const auto& connection : connections) {
        connection->Call();
    }
    std::array<epoll_event, 64> ready;
    for (int running = clients; running > 0;) {
        const int count = epoll_wait(set, ready.data(), static_cast<int>(ready.size()), -1);
        for (int i = 0; i < count; ++i) {
            auto& connection = *static_cast<Connection*>(ready[static_cast<std::size_t>(i)].data.ptr);
            do {
                double milliseconds = 0;
                if (connection.Take(milliseconds)) {
                    load.milliseconds.push_back(milliseconds);
                    connection.Done() < calls ? connection.Call() : static_cast<void>(--running);
                }
            } while (connection.HasLine());
        }
    }
    load.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    close(set);
    std::sort(load.milliseconds.begin(), load.milliseconds.end());
    return load;
}

// A server process, until the end of the scope. The constructor returns when it listens on `socket`.
class Server {
public:
    Server(const std::vector<std::string>& command, const fs::path& socket) {
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // ends with this program, also when that is killed
            setenv(platform::kServiceVariable, "Zorvalis", 1);
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);  // the service prints a line for each bad call
            Execute(command);
        }
        while (!fs::exists(socket)) {
            if (waitpid(child_, nullptr, WNOHANG) != 0) {
                Fail(command[0] + " does not listen");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~Server() {
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    long Descriptors() const {
        return std::distance(fs::directory_iterator(Process() / "fd"), fs::directory_iterator());
    }
    double Memory() const {  // resident, MiB
        std::ifstream file(Process() / "statm");
        double pages = 0;
        file >> pages >> pages;
        return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
    }

    long Threads() const { return std::distance(fs::directory_iterator(Process() / "task"), fs::directory_iterator()); }

    // How often its threads have waited for something.
    long Switches() const {
        long sum = 0;
        for (const auto& thread : fs::directory_iterator(Process() / "task")) {
            std::ifstream file(thread.path() / "status");
            for (std::string name; file >> name;) {
                long number = 0;
                sum += name == "voluntary_ctxt_switches:" && file >> number ? number : 0;
            }
        }
        return sum;
    }

    // The service closes its ends of our connections a little later, and ends a call's thread when that was idle for 20
    // seconds; how many there are says more about its memory than anything else. Waits half a minute at most: it may
    // also have opened other files for good.
    void WaitUntilIdle(long descriptors, long threads) const {
        for (int tries = 0; (Descriptors() > descriptors || Threads() > threads) && tries < 300; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

private:
    fs::path Process() const { return fs::path("/proc") / std::to_string(child_); }

    pid_t child_ = -1;
};

void Row(Results& results, int clients, const Load& service, const Load& plain) {
    std::vector<std::string> cells = {std::to_string(clients) + (clients == 1 ? " client" : " clients")};
    for (const Load* const load : {&service, &plain}) {
        cells.insert(cells.end(), {Digits(load->Rate(), 0), Digits(load->Share(0.5), 3), Digits(load->Share(0.99), 3)});
    }
    cells.push_back(Digits(service.Share(0.5) / plain.Share(0.5), 1));
    cells.push_back(Digits(service.Share(0.99) / plain.Share(0.99), 1));
    results.Row(cells);
}

// The path of a socket has at most 107 characters, and the build's folder may be longer.
fs::path TemporaryFolder() {
    static std::string folder = (fs::temp_directory_path() / "zorv-rpc-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        Fail("no folder can be made in " + fs::temp_directory_path().string());
    }
    std::atexit([] { fs::remove_all(folder); });
    return folder;
}

}  // namespace

int main() {
    constexpr double kMostGrowth = 1;  // MiB at rest, of 200,000 calls: no block of the heap for one call in six
    constexpr int kClients[] = {1, 10, 100, 1000, 4000}, kCalls = 40000, kMany = 1000, kCallsOfRound = 200000;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const fs::path folder = TemporaryFolder(), machine = folder / "machine";
    MakeMachine(machine);
    const fs::path socket = machine / "run/ZorvHelpRpcEndpoint", plainSocket = folder / "plain";
    std::map<int, Load> service, plain;
    struct Round {
        double busy = 0, rest = 0;  // MiB: with all its threads still there, and with none
        long descriptors = 0;
    } rounds[2];
    double switches = 0;
    {
        const Server server({BuildFolder() / "bin" / "zorvalis-agent-service"}, socket);
        const long descriptors = server.Descriptors(), threads = server.Threads();
        for (const int clients : kClients) {
            const long before = server.Switches();
            service[clients] = Run(socket, clients, kCalls / clients, true);
            switches = clients == 1 ? static_cast<double>(server.Switches() - before) / kCalls : switches;
        }
        for (Round& round : rounds) {
            Run(socket, kMany, kCallsOfRound / kMany, true);
            round.busy = server.Memory();
            server.WaitUntilIdle(descriptors, threads);
            round.rest = server.Memory();
            round.descriptors = server.Descriptors();
        }
    }
    {
        const Server server({BuildFolder() / "bench" / "plain-server", plainSocket, folder / "plain.log"}, plainSocket);
        for (const int clients : kClients) {
            plain[clients] = Run(plainSocket, clients, kCalls / clients, false);
        }
    }
    Results results("4-calls",
                    "Calls of applications, four in ten of them bad, beside a plain server that writes the same log: "
                    "calls a second, milliseconds median and of all but one in a hundred",
                    {"", "service", "median", "99 %", "plain", "median", "99 %", "median", "99 %"});
    results.Plot("What a call costs by the number of clients", "clients", "microseconds a call");
    for (const int clients : kClients) {
        Row(results, clients, service[clients], plain[clients]);
        results.Point("the service", clients, 1e6 / service[clients].Rate());
        results.Point("a plain server", clients, 1e6 / plain[clients].Rate());
    }
    results.Text("A call of one client takes " + Digits(switches, 2) + " waits of the service's threads.");
    for (const Round& round : rounds) {
        results.Text("After " + std::to_string(kCallsOfRound) + " calls of " + std::to_string(kMany) +
                     " clients: " + Digits(round.busy, 1) + " MiB at once, " + Digits(round.rest, 1) + " MiB and " +
                     std::to_string(round.descriptors) + " descriptors at rest.");
    }
    results.Aim("calls a second of one client", service[1].Rate(), 15000, true);
    results.Aim("median of one client, times the plain server's", service[1].Share(0.5) / plain[1].Share(0.5), 3);
    results.Aim("99 % of a thousand clients, times the plain server's",
                service[kMany].Share(0.99) / plain[kMany].Share(0.99), 4);
    results.Aim("MiB after a thousand clients", std::max(rounds[0].busy, rounds[1].busy), 24);
    results.Aim("MiB at rest that the second 200,000 calls added", rounds[1].rest - rounds[0].rest, kMostGrowth);
    if (rounds[1].descriptors > rounds[0].descriptors) {
        Fail("the service has kept descriptors");
    }
    return 0;
}
