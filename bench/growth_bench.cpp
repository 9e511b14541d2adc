// growth-bench [RUNS]: how the cost of a pass and of a call grows with what a machine has gathered: rows in the file,
// files, registry values, entries of the event log, clients. The least of RUNS, 5 without it. Each growth is fitted by
// a power of the number, and one that is worse than a line misses its aim.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "collection/collectors.h"
#include "collection/dispatch.h"
#include "common/files.h"
#include "common/registry.h"
#include "measure.h"
#include "platform/stand_in/service_control.h"
#include "results.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"
#include "upload/file_status.h"

namespace fs = std::filesystem;
using namespace zorvalis;

namespace {

constexpr double kFlat = 0.15;  // growing by less than this part of the cost without any counts as flat
constexpr double kLine = 1.25;  // up to this exponent it counts as a line

// The cost by a number. The first point is of none.
using Points = std::vector<std::pair<double, double>>;

[[noreturn]] void Fail(const std::string& text) {
    std::fprintf(stderr, "growth-bench: %s\n", text.c_str());
    std::exit(1);
}

// What else the machine does can only add to a cost.
double Least(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

fs::path Machine() {
    return BuildFolder() / "bench" / "machine";
}

fs::path DataFolder() {
    return Machine() / "ProgramData/Zorv/Zorvcore/Zorvalis/data";
}

double PassCost() {
    return RunProcess({BuildFolder() / "bin" / "zorvalis-agent-service", "-j0"}).cpu;
}

// A machine that has made its first pass, so that nothing is due.
void MakeUsedMachine() {
    MakeMachine(Machine());
    PassCost();
}

void MakeUploadDue() {
    DeleteRegValue(kLocalMachine, kProductKey, L"upload");
}

void AddRows(int rows) {
    const std::string name = "O_" + getAutoDBFileName() + ".db";
    for (const CollectionKind kind : {CollectionKind::Battery_Power, CollectionKind::Thermal}) {
        DataCollector collector(kind);
        collector.dbName = name;
        const SampleRow row = RetrieveData(collector);
        std::string sql;
        for (int i = 1; i < std::min(rows, getRecordLimit(DbClass::periodic, collector.tableName)); ++i) {
            sql += buildInsert(collector.tableName, collector.rows, row, collector.columnCount);
        }
        insert(name, "BEGIN;" + sql + "COMMIT;");
    }
}

std::string NameOfFile(int number) {
    return "O_" + std::to_string(number) + ".db";
}

void AddFiles(int files) {
    for (int i = 0; i < files; ++i) {
        std::ofstream(DataFolder() / NameOfFile(i)) << "a file\n";
    }
}

// They have been sent, so all but the last ten go with the next upload.
void AddSentFiles(int files) {
    AddFiles(files);
    BG_FILESTATUS_CONTROLLER().fcloseDB();
    std::string sql;
    for (int i = 0; i < files; ++i) {
        sql += "INSERT INTO FILESTATUS (FILE_NAME, FILE_TYPE, FILE_CREATEDATE, FILE_STATUS) VALUES ('" + NameOfFile(i) +
               "', 1, '2026-01-01', 1);";
    }
    insert(kStatusDb, "BEGIN;" + sql + "COMMIT;");
}

void AddRegistryValues(int values) {
    for (int i = 0; i < values; ++i) {
        WriteRegString(kLocalMachine, kProductKey, (L"Spare" + std::to_wstring(i)).c_str(), L"0");
    }
}

void AddLogEntries(int entries) {
    std::ofstream log(Machine() / "eventlog.jsonl", std::ios::app);
    for (int i = 0; i < entries; ++i) {
        log << R"({"source":"Zorvalis","strings":["Zorvalis","UP SUCCESS"],"time":1790000000.0,"type":4})"
            << "\n";
    }
}

// What passes cost that differ in a number only. `add` brings a used machine to the number; `before` stands before each
// run. Where a pass uses up what was added, or adds to it, each run gets a new machine.
Points Passes(const std::vector<int>& numbers, int runs, const std::function<void(int)>& add,
              const std::function<void()>& before, bool isUsedUp = false) {
    Points points;
    for (const int number : numbers) {
        std::vector<double> costs;
        for (int run = 0; run < runs; ++run) {
            if (run == 0 || isUsedUp) {
                MakeUsedMachine();
                add(number);
            }
            if (run == 0 && !isUsedUp) {
                PassCost();  // reads what was added into the kernel's memory
            }
            before();
            costs.push_back(PassCost());
        }
        points.emplace_back(number, Least(costs));
    }
    return points;
}

// The running service, until the end of the scope.
class Service {
public:
    Service() : child_(fork()) {
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            setenv(platform::kServiceVariable, "Zorvalis", 1);
            Execute({BuildFolder() / "bin" / "zorvalis-agent-service"});
        }
    }
    ~Service() {
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    double Cpu() const {  // milliseconds since its start
        clockid_t clock{};
        timespec time{};
        clock_getcpuclockid(child_, &clock);
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
    }

private:
    pid_t child_;
};

// A client that has opened a context.
class Client {
public:
    explicit Client(const fs::path& path) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        for (int tries = 0; connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0; ++tries) {
            if (tries == 1000) {
                Fail("the service does not listen");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        context_ = ParseJson(Ask("RemoteOpen", "{}"))["result"]["context"].get<std::uint64_t>();
    }
    ~Client() { close(socket_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Call() {
        const std::string answer =
            Ask("BigDataServiceCall", "{\"context\":" + std::to_string(context_) +
                                          R"(,"input":"{\"function\":9,\"version\":1}","outputSize":4096,"cookie":0})");
        if (answer.find("Success") == std::string::npos) {
            Fail("a call was answered with " + answer);
        }
    }

private:
    std::string Ask(const std::string& method, const std::string& parameters) {
        const std::string line =
            R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":)" + parameters + "}\n";
        send(socket_, line.data(), line.size(), MSG_NOSIGNAL);
        std::string answer;
        while (!answer.ends_with('\n')) {
            char bytes[4096];
            const ssize_t size = recv(socket_, bytes, sizeof bytes, 0);
            if (size <= 0) {
                Fail("a connection was cut off");
            }
            answer.append(bytes, static_cast<std::size_t>(size));
        }
        return answer;
    }

    int socket_;
    std::uint64_t context_ = 0;
};

// What a thousand calls of one client cost the service while others are connected, each with a context.
Points Calls(const std::vector<int>& numbers, int runs) {
    // The path of a socket has at most 107 characters, and the build's folder may be longer.
    static std::string folder = (fs::temp_directory_path() / "zorv-growth-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        Fail("no folder can be made in " + fs::temp_directory_path().string());
    }
    std::atexit([] { fs::remove_all(folder); });
    MakeMachine(folder + "/machine");
    const fs::path path = folder + "/machine/run/ZorvHelpRpcEndpoint";
    const Service service;
    Client caller(path);
    std::vector<std::unique_ptr<Client>> others;
    Points points;
    for (const int number : numbers) {
        while (static_cast<int>(others.size()) < number) {
            others.push_back(std::make_unique<Client>(path));
        }
        std::vector<double> costs;
        for (int run = 0; run < runs; ++run) {
            const double before = service.Cpu();
            for (int call = 0; call < 1000; ++call) {
                caller.Call();
            }
            costs.push_back(service.Cpu() - before);
        }
        points.emplace_back(number, Least(costs));
    }
    return points;
}

// The exponent of what is added to the least cost, over the last two decades of numbers, by the method of least
// squares; 0 when it is flat. One number alone that stands out of the flat is taken for a line's beginning.
double ExponentOf(const Points& points) {
    double least = points.front().second;
    for (const auto& [number, cost] : points) {
        least = std::min(least, cost);
    }
    if (points.back().second - least < kFlat * least) {
        return 0;
    }
    Points logs;
    for (const auto& [number, cost] : points) {
        if (number >= points.back().first / 10 && cost - least > kFlat * least) {
            logs.emplace_back(std::log(number), std::log(cost - least));
        }
    }
    if (logs.size() < 2) {
        return 1;
    }
    double x = 0, y = 0, xx = 0, xy = 0;
    for (const auto& [number, cost] : logs) {
        x += number, y += cost, xx += number * number, xy += number * cost;
    }
    const auto count = static_cast<double>(logs.size());
    const double exponent = (count * xy - x * y) / (count * xx - x * x);
    return exponent < 0.1 ? 0 : exponent;
}

std::string WordsFor(double exponent) {
    return exponent == 0          ? "flat"
           : exponent < 2 - kLine ? "less than a line"
           : exponent <= kLine    ? "a line"
                                  : "worse than a line";
}

void Report(Results& results, const std::string& what, const Points& points) {
    const double none = points.front().second, exponent = ExponentOf(points);
    const auto [most, cost] = points.back();
    results.Row({what, Digits(none, 1), Digits(most, 0), Digits(cost, 1), Digits((cost - none) / most * 1000, 2),
                 exponent == 0 ? "" : Digits(exponent, 2), WordsFor(exponent)});
    for (const auto& [number, value] : points) {
        results.Point(what, number, value);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 5;
    const auto nothing = [] {};
    const auto allDue = [] {
        for (const wchar_t* timer : {L"GetThermal", L"GetBatteryPower", L"GetSystemInfo"}) {
            DeleteRegValue(kLocalMachine, kProductKey, timer);
        }
    };
    const std::vector<int> many = {0, 10, 100, 300, 1000, 3000, 10000};
    struct Growth {
        const char* what;
        Points points;
    };
    const std::vector<Growth> passes = {
        {"rows of a kind, all due", Passes({0, 24, 48, 96, 192, 288}, runs, AddRows, allDue, true)},
        {"files, nothing due", Passes(many, runs, AddFiles, nothing)},
        {"files, upload due", Passes(many, runs, AddFiles, MakeUploadDue)},
        {"sent files, upload due", Passes(many, 1, AddSentFiles, MakeUploadDue, true)},
        {"registry values, nothing due", Passes(many, runs, AddRegistryValues, nothing)},
        {"log entries, upload due", Passes({0, 1000, 10000, 100000, 1000000}, runs, AddLogEntries, MakeUploadDue)},
    };
    const Points calls = Calls({0, 10, 30, 100, 300, 1000}, runs);

    Results results("8-growth", "How cost grows",
                    {"ms of a processor by", "none", "most", "by most", "by a thousand", "exponent", "it is"});
    results.Plot("A pass by what the machine has gathered", "how many", "ms of a processor");
    for (const auto& [what, points] : passes) {
        Report(results, what, points);
    }
    results.Plot("A thousand calls of one client, by all clients", "clients that are connected",
                 "ms of the service's processor time");
    Report(results, "clients, a thousand calls of one", calls);
    results.Text(
        "Files are in the data folder, values in the product's key. Of files that were sent and recorded a pass "
        "deletes all but the last ten of a kind, so it clears all of this at once. " +
        std::string("Flat is what grows by less than ") + Digits(kFlat * 100, 0) +
        " %; the exponent is fitted to what is added from a tenth of the most on, and a line has 1.");
    for (const auto& [what, points] : passes) {
        results.Aim("exponent of the growth with " + std::string(what), ExponentOf(points), kLine);
    }
    results.Aim("exponent of the growth with clients, a thousand calls of one", ExponentOf(calls), kLine);
    return 0;
}
