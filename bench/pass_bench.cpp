// pass-bench [RUNS]: what a whole `-j0` pass costs as a process, beside floor_pass.cpp, which makes the same file
// operations; on a new file, and by the number of rows that the file has already. RUNS, 15 without it, are made of
// each.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "collection/collectors.h"
#include "collection/dispatch.h"
#include "measure.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"

namespace fs = std::filesystem;
using namespace zorvalis;

namespace {

constexpr CollectionKind kKinds[] = {CollectionKind::Battery_Power, CollectionKind::Thermal, CollectionKind::SysInfo};

// Makes the file of this machine and month with `rows` rows of each timed kind, or as many as its table takes. Returns
// its name.
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
    }
    return name;
}

// What floor-pass reads: the statements of the samples of one pass.
void WriteStatements(const fs::path& file) {
    std::ofstream out(file);
    for (const CollectionKind kind : kKinds) {
        DataCollector collector(kind);
        const SampleRow row = RetrieveData(collector);
        out << buildCreateTable(collector.tableName, collector.rows, collector.columnCount) << "\n"
            << collector.tableName << "\n"
            << buildInsert(collector.tableName, collector.rows, row, collector.columnCount) << "\n";
    }
}

void PrintRow(const char* what, const Cost& pass, const Cost& floor) {
    std::printf("%-22s %7.1f %7.1f %7.1f   %7.1f %7.1f %7.1f   %5.2f %5.2f\n", what, pass.wall, pass.cpu, pass.memory,
                floor.wall, floor.cpu, floor.memory, pass.wall / floor.wall, pass.cpu / floor.cpu);
}

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

}  // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 15;
    const fs::path build = BuildFolder();
    const fs::path bin = build / "bin";
    const fs::path machine = build / "bench" / "machine";
    const fs::path statements = build / "bench" / "statements.sql";
    MakeMachine(machine);
    WriteStatements(statements);
    std::printf("median of %d runs; ms wall, ms processor, MiB peak\n", runs);
    std::printf("%-22s %23s   %23s   %11s\n", "", "-j0 pass", "same file operations", "ratio");
    for (const int rows : {0, 24, 48, 96, 288}) {
        std::vector<Cost> passes, floors;
        for (int run = 0; run < runs; ++run) {
            MakeMachine(machine);
            const fs::path data = machine / "ProgramData/Zorv/Zorvcore/Zorvalis/data";
            const fs::path spare = build / "bench" / "floor.db";
            fs::remove(spare);
            if (rows > 0) {
                fs::copy_file(data / FillFile(rows), spare);
            }
            floors.push_back(RunProcess({(build / "bench" / "floor-pass").string(), spare.string()}, statements));
            passes.push_back(RunProcess({(bin / "zorvalis-agent-service").string(), "-j0"}));
        }
        PrintRow(rows == 0 ? "new file" : (std::to_string(rows) + " rows of a kind").c_str(), Median(passes),
                 Median(floors));
    }
    std::printf("one sensor read (load, ask, unload the library): %.0f us; a pass makes some fifty\n", ReadCost());
    return 0;
}
