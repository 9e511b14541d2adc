// upload-bench [RUNS [FOLDER [MIB]]]: what it costs to send a file. A `-j0` pass in which only the upload is due stands
// beside plain_upload.cpp, which makes the same requests. All talk over TLS to one reference server on loopback, whose
// own time is in the wall time of each. What arrived is compared with what was sent. FOLDER takes machine and server,
// MIB is the largest file.
#include <signal.h>
#include <sqlite3.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "collection/collectors.h"
#include "common/deployment.h"
#include "common/files.h"
#include "common/registry.h"
#include "measure.h"
#include "results.h"
#include "store/telemetry_db.h"
#include "upload/file_status.h"

namespace fs = std::filesystem;
using namespace zorvalis;

namespace {

constexpr std::size_t kMiB = 1 << 20;
constexpr std::size_t kChunk = 16384;

[[noreturn]] void Fail(const std::string& text) {
    std::fprintf(stderr, "upload-bench: %s\n", text.c_str());
    std::exit(1);
}

// The reference server, with a certificate authority of its own, until the end of the scope.
class Server {
public:
    explicit Server(const fs::path& folder) : folder_(folder) {
        const std::string program = BuildFolder() / "bin" / "zorvserver";
        fs::remove_all(folder);
        RunProcess({program, "--make-ca", folder});
        int output[2];
        if (pipe(output) != 0 || (child_ = fork()) < 0) {
            Fail("the server cannot be started");
        }
        if (child_ == 0) {
            dup2(output[1], STDOUT_FILENO);
            prctl(PR_SET_PDEATHSIG, SIGTERM);  // ends with this program, also when that is killed
            Execute({program, "--quiet", "--data", folder / "data", "--cert", folder / "server.pem", "--key",
                     folder / "server.key"});
        }
        close(output[1]);
        std::FILE* const lines = fdopen(output[0], "r");
        char address[64] = "";
        if (std::fscanf(lines, "listening https %63s", address) != 1) {
            Fail("the server does not listen");
        }
        std::fclose(lines);
        address_ = address;
    }
    ~Server() {
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    const std::string& Address() const { return address_; }
    std::string Authority() const { return folder_ / "ca.pem"; }
    fs::path File(const std::string& name) const { return folder_ / "data" / "files" / name; }

private:
    fs::path folder_;
    pid_t child_ = -1;
    std::string address_;
};

// Makes a database file of about `size` bytes in the data folder, with all tables. Its rows fill a page each.
void MakeFile(const std::string& name, std::size_t size) {
    createAllTables(name, DbClass::periodic);
    initDB(name, "CREATE TABLE Padding (bytes BLOB);");
    TelemetryDb handle;
    openDB(name, handle);
    const auto execute = [&](const std::string& sql) {
        if (sqlite3_exec(handle.db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
            Fail(sqlite3_errmsg(handle.db));
        }
    };
    execute("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY; PRAGMA cache_size = 100;");
    const auto pages = [&] {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(handle.db, "PRAGMA page_count", -1, &statement, nullptr);
        sqlite3_step(statement);
        const std::int64_t count = sqlite3_column_int64(statement, 0);
        sqlite3_finalize(statement);
        return count;
    };
    while (pages() < static_cast<std::int64_t>(size / 4096)) {
        execute("INSERT INTO Padding VALUES (randomblob(3900))");
    }
    closeDB(handle);
}

class UploadBench {
public:
    UploadBench(const fs::path& folder, const Server& server)
        : machine_(folder / "upload-machine"), sample_(folder / "upload.db"), server_(server) {}

    // Makes a new machine and the file of that size that the next runs send.
    void Prepare(std::size_t size) {
        MakeMachine(machine_);
        for (const wchar_t* timer : {L"GetThermal", L"GetBatteryPower", L"GetSystemInfo"}) {
            StartTimer(timer);
        }
        std::ofstream(machine_ / "network.json")
            << R"({"online": true, "hosts": {")" << deployment::DefaultServer << R"(:443": ")" << server_.Address()
            << R"("}, "ca": ")" << server_.Authority() << "\"}\n";
        MakeFile("sample.db", size);
        fs::rename(Data() / "sample.db", sample_);
        chunks_ = (fs::file_size(sample_) + kChunk - 1) / kChunk;
    }

    std::size_t Chunks() const { return chunks_; }

    // A pass that sends the file; without `waits` the product's sleeps take no time.
    Cost Pass(bool waits) {
        const std::string name = NextName("pass");
        fs::remove_all(Data());
        fs::create_directories(Data());
        fs::copy_file(sample_, Data() / name);
        {
            BG_FILESTATUS_CONTROLLER controller;
            controller.setFileName(name);
            controller.setFileType(1);
            controller.fopenDB(kStatusDb);
            controller.commit();
        }
        DeleteRegValue(kLocalMachine, kProductKey, L"upload");
        std::ofstream(machine_ / "clock.json") << (waits ? "{}" : R"({"wait": 0})") << "\n";
        const Cost cost = RunProcess({BuildFolder() / "bin" / "zorvalis-agent-service", "-j0"});
        Compare(name);
        return cost;
    }

    Cost Plain(bool resumes) {
        const std::string name = NextName("plain");
        std::vector<std::string> command = {BuildFolder() / "bench" / "plain-upload",
                                            deployment::DefaultServer,
                                            server_.Address(),
                                            server_.Authority(),
                                            sample_,
                                            name};
        if (resumes) {
            command.push_back("resume");
        }
        const Cost cost = RunProcess(command);
        Compare(name);
        return cost;
    }

private:
    fs::path Data() const { return machine_ / "ProgramData/Zorv/Zorvcore/Zorvalis/data"; }

    // The server takes a file of each name only once.
    std::string NextName(const char* word) { return word + std::to_string(++runs_) + ".db"; }

    void Compare(const std::string& name) const {
        // In a process of its own: a child's peak memory is never less than that of this program.
        RunProcess({"/usr/bin/cmp", server_.File(name), sample_});
        fs::remove(server_.File(name));
    }

    fs::path machine_;
    fs::path sample_;
    const Server& server_;
    std::size_t chunks_ = 0;
    int runs_ = 0;
};

// The straight line through the points that comes nearest to all in proportion, and how far the farthest lies off it.
struct Line {
    double start = 0, slope = 0, farthest = 0;
};

Line FitLine(const std::vector<std::pair<double, double>>& points) {
    double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (const auto& [x, y] : points) {
        const double weight = 1 / (y * y);
        n += weight, sx += weight * x, sy += weight * y, sxx += weight * x * x, sxy += weight * x * y;
    }
    Line line;
    line.slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
    line.start = (sy - line.slope * sx) / n;
    for (const auto& [x, y] : points) {
        line.farthest = std::max(line.farthest, std::abs(y - line.start - line.slope * x) / y * 100);
    }
    return line;
}

constexpr const char* kPrograms[] = {"pass", "plain", "plain, resumes"};

}  // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 9;
    // A pass makes and deletes many small files, so the file system of the folder decides much: it can be chosen.
    const fs::path folder = argc > 2 ? fs::absolute(argv[2]) : BuildFolder() / "bench";
    const std::size_t largest = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 256;
    const Server server(folder / "upload-server");
    UploadBench bench(folder, server);
    Results results("3-upload", "Upload: a `-j0` pass that sends a file, and a plain program with the same requests",
                    {"", "ms wall", "ms processor", "MiB peak", "wall / plain", "processor / plain"});
    results.Plot("An upload by the size of its file", "MiB", "ms");
    std::vector<std::pair<double, double>> points;
    double wall = 0, processor = 0, peak = 0;
    for (const std::size_t size : {1, 4, 16, 64, 256}) {
        if (size > largest) {
            break;
        }
        bench.Prepare(size * kMiB);
        std::vector<Cost> costs[3];
        for (int run = 0; run < std::max<int>(1, size <= 4 ? runs : runs * 4 / static_cast<int>(size)); ++run) {
            for (std::size_t program = 3; program-- > 0;) {
                if (program == 0 || size < 256) {  // the largest is for the line alone
                    costs[program].push_back(program == 0 ? bench.Pass(false) : bench.Plain(program == 2));
                }
            }
        }
        const double whole = static_cast<double>(size);
        const Cost plain = costs[1].empty() ? Cost{} : Median(costs[1]);
        for (std::size_t program = 0; program < 3 && !costs[program].empty(); ++program) {
            const Cost cost = Median(costs[program]);
            std::vector<std::string> cells = {std::to_string(size) + " MiB, " + kPrograms[program]};
            for (const double figure : {cost.wall, cost.cpu, cost.memory}) {
                cells.push_back(Digits(figure, 1));
            }
            if (plain.wall > 0) {
                cells.push_back(Digits(cost.wall / plain.wall, 2));
                cells.push_back(Digits(cost.cpu / plain.cpu, 2));
            }
            results.Row(cells);
            results.Point(std::string(kPrograms[program]) + ", wall", whole, cost.wall);
            results.Point(std::string(kPrograms[program]) + ", processor", whole, cost.cpu);
        }
        const Cost pass = Median(costs[0]);
        points.emplace_back(whole, pass.cpu);
        peak = std::max(peak, pass.memory);
        if (plain.wall > 0 && size >= 4) {  // with less to send, a pass is mostly its other work
            wall = std::max(wall, pass.wall / plain.wall);
            processor = std::max(processor, pass.cpu / plain.cpu);
        }
    }
    bench.Prepare(kMiB);
    const double waits = kPause * static_cast<double>(bench.Chunks() + 1);
    const double whole = bench.Pass(true).wall;
    const Line line = FitLine(points);
    results.Text("Medians of " + std::to_string(runs) +
                 " runs up to 4 MiB, then of fewer. The product's waits (200 ms for each piece) are left out; with "
                 "them 1 MiB takes " +
                 Digits(whole / 1e3, 2) + " s, " + Digits(whole - waits, 0) + " ms above the waits.");
    results.Text(
        "Each request of the plain program makes a whole TLS handshake; where it resumes sessions, as a pass does, "
        "it is the floor.");
    results.Text("A pass takes " + Digits(line.start, 1) + " ms of processor time and " + Digits(line.slope, 1) +
                 " ms for each MiB.");
    results.Aim("upload: wall time, times the plain program's, at the worst size from 4 MiB on", wall, 1.0);
    results.Aim("upload: processor time, times the plain program's, at the worst size from 4 MiB on", processor, 1.1);
    results.Aim("upload: peak memory at any size, MiB", peak, 12);
    results.Aim("upload: processor time off a straight line at the worst size, percent", line.farthest, 10);
    return 0;
}
