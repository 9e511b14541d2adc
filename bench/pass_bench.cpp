// pass-bench [RUNS]: what a whole `-j0` pass costs as a process, beside floor_pass.cpp, which does the same with files
// and the hardware library; on a new file and by the number of rows that the file has already, with a library whose
// exports are constants and with the stand-in library. Then what the steps of a pass cost, and the calls of a first
// pass for pass_calls.py. Five times RUNS, 15 without it, are made of each: they are short.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "collection/collectors.h"
#include "collection/dispatch.h"
#include "common/registry.h"
#include "common/time.h"
#include "measure.h"
#include "results.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"
#include "upload/file_status.h"

namespace fs = std::filesystem;
using namespace zorvalis;

namespace {

constexpr CollectionKind kKinds[] = {CollectionKind::Battery_Power, CollectionKind::Thermal, CollectionKind::SysInfo};
constexpr int kUsualRows = 24;

fs::path Bench() {
    return BuildFolder() / "bench";
}

// Where the machines are: in memory, where the file system adds the least to what the programs do.
const fs::path kMemory = "/dev/shm/zorvalis-pass-bench";
fs::path work = kMemory;

// The folder of the library whose exports are constants; the executable takes the one beside itself.
fs::path TrivialPrograms() {
    for (const char* file : {"zorvalis-agent-service", "default.json"}) {
        fs::copy_file(BuildFolder() / "bin" / file, Bench() / "trivial" / file, fs::copy_options::overwrite_existing);
    }
    return Bench() / "trivial";
}

// Makes the file of this machine and month with `rows` rows of each timed kind, or as many as its table takes, and the
// registry values that come with its rows. Returns its name.
std::string FillFile(int rows) {
    const std::string name = "O_" + getAutoDBFileName() + ".db";
    for (const CollectionKind kind : kKinds) {
        DataCollector collector(kind);
        collector.dbName = name;
        genDB(collector);
        const int room = getRecordLimit(DbClass::periodic, collector.tableName);
        const SampleRow row = RetrieveData(collector);
        std::string sql;
        for (int i = 0; i < std::min(rows, room); ++i) {
            sql += buildInsert(collector.tableName, collector.rows, row, collector.columnCount);
        }
        insert(name, "BEGIN;" + sql + "COMMIT;");
        if (kind == CollectionKind::SysInfo) {
            updateSystemInfoRegistry(row);
        }
    }
    return name;
}

// What a pass starts from: a machine, of which each run gets a copy.
class Start {
public:
    // In a folder that no other start has: this process may still hold open what it used in one.
    Start(const std::string& name, const fs::path& programs, int rows)
        : programs_(programs), machine_(work / "starts" / name) {
        MakeMachine(machine_, programs_);
        if (rows > 0) {
            file_ = FillFile(rows);
        }
    }

    // Makes the copy that the next process runs on.
    void Copy() const {
        fs::remove_all(Machine());
        fs::copy(machine_, Machine(), fs::copy_options::recursive);
        setenv("ZORV_MACHINE", Machine().c_str(), 1);
    }

    std::vector<std::string> Command(const char* option = "-j0") const {
        return {programs_ / "zorvalis-agent-service", option};
    }

    Cost Pass(const char* option = "-j0") const {
        Copy();
        return RunProcess(Command(option));
    }

    Cost Floor() const {
        Copy();
        return RunProcess(FloorCommand(), Steps());
    }

    std::size_t FloorCalls() const {
        Copy();
        return SystemCalls(FloorCommand(), Steps()).size();
    }

    // Writes what floor-pass reads, in the order in which a pass does it. Returns how often a pass loads the library.
    int WriteSteps() const {
        Copy();
        std::vector<std::string> statements;
        for (const CollectionKind kind : kKinds) {
            DataCollector collector(kind);
            const SampleRow row = RetrieveData(collector);
            statements.push_back(buildCreateTable(collector.tableName, collector.rows, collector.columnCount));
            statements.push_back(std::string("SELECT COUNT(*) FROM ") + collector.tableName);
            statements.push_back(buildInsert(collector.tableName, collector.rows, row, collector.columnCount));
        }
        Copy();
        std::ofstream out(Steps());
        std::size_t cycles = 0;
        int loads = 0;
        for (const std::string& call : SystemCalls(Command())) {
            if (call.find("ZorvWinIo64.so\", O_RDONLY|O_CLOEXEC") != std::string::npos) {  // only dlopen opens it so
                out << "load\n";
                ++loads;
            } else if (call.find(" rename") != std::string::npos && call.find(".cached.temp\"") != std::string::npos) {
                out << (cycles < statements.size() ? statements[cycles] : "too many") << "\n";
                ++cycles;
            }
        }
        if (cycles != statements.size()) {
            std::fprintf(stderr, "a pass made %zu cycles, not %zu\n", cycles, statements.size());
            std::exit(1);
        }
        return loads;
    }

private:
    static fs::path Steps() { return Bench() / "steps.txt"; }
    static fs::path Machine() { return work / "machine"; }

    // In the machine's own folder: there the file system does for both what it does for one.
    std::vector<std::string> FloorCommand() const {
        const fs::path data = Machine() / "ProgramData/Zorv/Zorvcore/Zorvalis/data";
        fs::create_directories(data);
        return {Bench() / "floor-pass", data / (file_.empty() ? "new.db" : file_),
                Bench() / "trivial" / "ZorvWinIo64.so"};
    }

    fs::path programs_;
    fs::path machine_;
    std::string file_;
};

struct Library {
    std::string name;
    fs::path programs;
    double mostCpu;  // of the floor's
};

// Microseconds for one read of a sensor: the library is loaded, initialised, asked, shut down and unloaded.
double ReadCost() {
    constexpr int kReads = 500;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kReads; ++i) {
        DispatchDirect("Battery_Read_CycleCount");
    }
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    return time.count() / kReads;
}

// A row of the table: a pass and its floor by turns, so that a slow moment hits both.
std::pair<Cost, Cost> MeasureSize(Results& results, const std::string& what, const Start& start, int runs) {
    std::vector<Cost> passes, floors;
    for (int run = 0; run < runs; ++run) {
        floors.push_back(start.Floor());
        passes.push_back(start.Pass());
    }
    const Cost pass = Median(passes), floor = Median(floors);
    results.Row({what, Digits(pass.wall, 1), Digits(pass.cpu, 1), Digits(pass.instructions, 1), Digits(pass.memory, 1),
                 Digits(floor.wall, 1), Digits(floor.cpu, 1), Digits(floor.instructions, 1), Digits(floor.memory, 1),
                 Digits(pass.wall / floor.wall, 2), Digits(pass.cpu / floor.cpu, 2)});
    return {pass, floor};
}

void MeasureSizes(const std::vector<Library>& libraries, int runs) {
    Results results("1-pass",
                    "A pass, beside the same work with files and a library whose exports are constants. Median of " +
                        std::to_string(runs) + " runs",
                    {"", "ms wall", "ms cpu", "M instr.", "MiB peak", "floor: wall", "cpu", "M instr.", "MiB",
                     "ratio wall", "cpu"});
    results.Plot("Processor time of a pass", "rows of a kind in the file", "ms");
    double memory = 0;
    for (const Library& library : libraries) {
        double worst = 0;
        for (const int rows : {0, kUsualRows, 48, 96, 288}) {
            const Start start(library.name + std::to_string(rows), library.programs, rows);
            const int loads = start.WriteSteps();
            const std::string size = rows == 0 ? "new file" : std::to_string(rows) + " rows of a kind";
            const auto [pass, floor] = MeasureSize(results, library.name + ", " + size, start, runs);
            results.Point("a pass, " + library.name, rows, pass.cpu);
            results.Point("the same work, " + library.name, rows, floor.cpu);
            worst = std::max(worst, pass.cpu / floor.cpu);
            memory = std::max(memory, pass.memory);
            if (rows == 0) {
                results.Text(library.name + ": a pass loads it " + std::to_string(loads) + " times; one sensor read (" +
                             "load, ask, unload) takes " + Digits(ReadCost(), 0) + " us. The floor makes " +
                             std::to_string(start.FloorCalls()) + " system calls");
            }
        }
        results.Aim(library.name + ": processor time of a pass, by that of the same work, at the worst size", worst,
                    library.mostCpu);
    }
    results.Aim("peak memory of a pass, MiB", memory, 5);
    // What a file system does on a disk depends on what was deleted there in the last minutes, so no aim is set for it.
    work = Bench() / "machines";
    fs::remove_all(work);
    for (const Library& library : libraries) {
        const Start start("disk " + library.name, library.programs, kUsualRows);
        start.WriteSteps();
        MeasureSize(results, library.name + ", " + std::to_string(kUsualRows) + " rows, on the build's disk", start,
                    runs);
    }
    work = kMemory;
}

// What a step of a pass costs, as the difference between runs that have it and runs that do not.
void MeasureSteps(const Library& library, int runs) {
    struct Step {
        const char* what;
        std::function<void()> prepare;  // on the machine
        const char* option = "-j0";
    };
    const auto start_timers = [](std::vector<const wchar_t*> names) {
        return [names = std::move(names)] { std::for_each(names.begin(), names.end(), StartTimer); };
    };
    const std::vector<Step> steps = {
        {"the process starts and ends", [] {}, "-none"},
        {"a pass that may not collect", [] { WriteRegString(kLocalMachine, kProductKey, L"MainSwitch", L"0"); }},
        {"a pass with nothing due", start_timers({L"GetBatteryPower", L"GetThermal", L"GetSystemInfo"})},
        {"battery and power are due", start_timers({L"GetThermal", L"GetSystemInfo"})},
        {"temperatures too", start_timers({L"GetSystemInfo"})},
        {"how the machine is built too", [] {}},
        {"and uploads; no file is of age",
         [] {
             DeleteRegValue(kLocalMachine, kProductKey, L"upload");
             BG_FILESTATUS_CONTROLLER controller;
             controller.setFileName("O_" + getAutoDBFileName() + ".db");
             controller.setFileType(1);
             controller.setFileCreateDate(NowTimeString().substr(0, 10));
             controller.fopenDB(kStatusDb);
             controller.commit();
         }},
    };
    std::vector<Start> starts;
    for (const Step& step : steps) {
        starts.emplace_back("step" + std::to_string(starts.size()), library.programs, kUsualRows);
        step.prepare();
    }
    std::vector<std::vector<Cost>> costs(steps.size());
    for (int run = 0; run < runs; ++run) {
        for (std::size_t i = 0; i < steps.size(); ++i) {
            costs[i].push_back(starts[i].Pass(steps[i].option));
        }
    }
    Results results("1-pass-steps",
                    "What each millisecond of a pass buys: " + library.name + ", " + std::to_string(kUsualRows) +
                        " rows of a kind. Each row beside the one above it",
                    {"", "ms cpu", "more", "M instr.", "more", "calls", "more"});
    Cost above;
    int callsAbove = 0;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Cost cost = Median(costs[i]);
        starts[i].Copy();
        const int calls = static_cast<int>(SystemCalls(starts[i].Command(steps[i].option)).size());
        results.Row({steps[i].what, Digits(cost.cpu, 2), Digits(cost.cpu - above.cpu, 2), Digits(cost.instructions, 2),
                     Digits(cost.instructions - above.instructions, 2), std::to_string(calls),
                     std::to_string(calls - callsAbove)});
        above = cost;
        callsAbove = calls;
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int runs = 5 * (argc > 1 ? std::atoi(argv[1]) : 15);
    fs::remove_all(work);
    const std::vector<Library> libraries = {{"trivial library", TrivialPrograms(), 1.25},
                                            {"stand-in library", BuildFolder() / "bin", 1.5}};
    MeasureSizes(libraries, runs);
    MeasureSteps(libraries[0], runs);
    for (const Library& library : libraries) {
        const Start start("calls of " + library.name, library.programs, 0);
        start.Copy();
        SystemCalls(start.Command(), "", Bench() / (library.name + ".calls"));
    }
    fs::remove_all(work);
    return 0;
}
