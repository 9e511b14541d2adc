// upload-bench [RUNS [FOLDER]]: what it costs to send a file. A `-j0` pass in which only the upload is due stands
// beside plain_upload.cpp, which makes the same requests. Both talk over TLS to one reference server on loopback, whose
// own time is in the wall time of both. What arrived is compared with what was sent. FOLDER takes machine and server.
#include <signal.h>
#include <sqlite3.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "collection/collectors.h"
#include "common/deployment.h"
#include "common/files.h"
#include "common/registry.h"
#include "measure.h"
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

    Cost Plain() {
        const std::string name = NextName("plain");
        const Cost cost = RunProcess({BuildFolder() / "bench" / "plain-upload", deployment::DefaultServer,
                                      server_.Address(), server_.Authority(), sample_, name});
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
    }

    fs::path machine_;
    fs::path sample_;
    const Server& server_;
    std::size_t chunks_ = 0;
    int runs_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // show each row at once
    const int runs = argc > 1 ? std::atoi(argv[1]) : 9;
    // A pass makes and deletes many small files, so the file system of the folder decides much: it can be chosen.
    const fs::path folder = argc > 2 ? fs::path(argv[2]) : BuildFolder() / "bench";
    const Server server(folder / "upload-server");
    UploadBench bench(folder, server);
    std::printf("median of %d runs; ms wall, ms processor, MiB peak\n", runs);
    std::printf("%-22s %23s   %23s   %11s\n", "", "-j0 pass that uploads", "same requests", "ratio");
    for (const std::size_t size : {4 * kMiB, 32 * kMiB}) {
        bench.Prepare(size);
        std::vector<Cost> passes, plains;
        for (int run = 0; run < (size == 4 * kMiB ? runs : 1); ++run) {
            plains.push_back(bench.Plain());
            passes.push_back(bench.Pass(false));
        }
        const Cost pass = Median(passes), plain = Median(plains);
        std::printf("%3zu MiB without waits   %7.1f %7.1f %7.1f   %7.1f %7.1f %7.1f   %5.2f %5.2f\n", size / kMiB,
                    pass.wall, pass.cpu, pass.memory, plain.wall, plain.cpu, plain.memory, pass.wall / plain.wall,
                    pass.cpu / plain.cpu);
    }
    bench.Prepare(4 * kMiB);
    const double waits = kPause * static_cast<double>(bench.Chunks() + 1);
    const double whole = bench.Pass(true).wall;
    std::printf("  4 MiB with its waits  %.2f s, %.1f s of them waits: %.0f ms above those\n", whole / 1e3, waits / 1e3,
                whole - waits);
    return 0;
}
