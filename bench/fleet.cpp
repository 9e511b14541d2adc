// fleet [MACHINES [PICTURE]]: what a fleet asks of its server in thirty days. Prints the figures of docs/fleet.md and
// draws docs/fleet.svg. The files' sizes are those of real files, made by the product on a stand-in machine.
#include "fleet.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <string>

#include "collection/collectors.h"
#include "collection/dispatch.h"
#include "collection/triggers.h"
#include "common/files.h"
#include "fleet_picture.h"
#include "jobs/rules.h"
#include "jobs/task_scheduler_setting.h"
#include "measure.h"
#include "settings/period_codes.h"
#include "store/telemetry_db.h"

namespace fs = std::filesystem;
using namespace zorvalis;
using fleet::kDay;
using fleet::Load;

namespace {

constexpr int kDays = 30, kWarmUp = 62;
constexpr double kMiB = 1 << 20;

// The sizes of one class's files, by the rows in each table.
std::vector<std::int64_t> MeasureFiles(DbClass dbClass, const std::string& name,
                                       std::initializer_list<CollectionKind> kinds) {
    std::vector<std::int64_t> sizes;
    createAllTables(name, dbClass);
    bool room = true;
    while (room) {
        sizes.push_back(GetFileSize(kDataFolder + name));
        room = false;
        std::string sql;
        for (const CollectionKind kind : kinds) {
            DataCollector collector(kind);
            // A table holds its limit and one row more.
            if (static_cast<int>(sizes.size()) <= getRecordLimit(dbClass, collector.tableName) + 1) {
                sql += buildInsert(collector.tableName, collector.rows, RetrieveData(collector), collector.columnCount);
                room = true;
            }
        }
        insert(name, "BEGIN;" + sql + "COMMIT;");
    }
    return sizes;
}

// The setting file that the product ships with, and files of the stand-in machine.
fleet::World ReadWorld() {
    MakeMachine(BuildFolder() / "bench" / "fleet-machine");
    const Json settings = SettingFileManager().LoadJsonFile("default.json");
    const auto text = [&](const char* key) {
        std::string value;
        if (!FindSettingText(settings, key, value)) {
            std::fprintf(stderr, "fleet: default.json has no %s\n", key);
            std::exit(1);
        }
        return value;
    };
    fleet::World world;
    for (std::size_t index = 0; index < kTimerNames.size(); ++index) {
        world.periods[index] = PeriodSeconds(text(kTimerNames[index].setting));
    }
    world.pauseDays = std::atoi(text("intervalTimer").c_str());
    world.months = std::atoi(text("totalCollectTime").c_str());
    using enum CollectionKind;
    world.fileSizes = {MeasureFiles(DbClass::periodic, "O.db", {Thermal, Battery_Power, SysInfo}),
                       MeasureFiles(DbClass::event, "E.db", {Thermal, Battery_Power, UserBehavior}),
                       MeasureFiles(DbClass::wmi_event, "W.db", {Thermal, Battery_Power, UserBehavior})};
    return world;
}

std::uint64_t Sum(const std::vector<std::uint32_t>& values, std::int64_t begin = 0, std::int64_t end = kDays * kDay) {
    return std::accumulate(values.begin() + begin, values.begin() + end, std::uint64_t{0});
}

// The greatest sum of `span` seconds that begin at a multiple of it, within [begin, end); divided by the span.
double Peak(const std::vector<std::uint32_t>& values, std::int64_t span, std::int64_t begin = 0,
            std::int64_t end = kDays * kDay) {
    std::uint64_t most = 0;
    for (std::int64_t at = begin; at < end; at += span) {
        most = std::max(most, Sum(values, at, std::min(at + span, end)));
    }
    return static_cast<double>(most) / static_cast<double>(span);
}

std::int64_t BusiestDay(const std::vector<std::uint32_t>& values) {
    std::vector<std::uint64_t> days;
    for (int day = 0; day < kDays; ++day) {
        days.push_back(Sum(values, day * kDay, (day + 1) * kDay));
    }
    return std::max_element(days.begin(), days.end()) - days.begin();
}

// The greatest of the midnight hours.
double MidnightPeak(const std::vector<std::uint32_t>& values, std::int64_t span) {
    double most = 0;
    for (std::int64_t day = 0; day < kDays; ++day) {
        most = std::max(most, Peak(values, span, day * kDay, day * kDay + 3600));
    }
    return most;
}

void PrintSums(const fleet::Scenario& scenario, const Load& load, int machines) {
    const std::uint64_t requests = Sum(load.requests);
    std::printf("\n%s\n", scenario.name);
    std::printf("  requests %llu: %llu queries, and %llu files of %llu pieces with two requests each beside them\n",
                static_cast<unsigned long long>(requests), static_cast<unsigned long long>(load.queries),
                static_cast<unsigned long long>(load.files), static_cast<unsigned long long>(load.chunks));
    std::printf(
        "  queries per machine and day %.3f; files %.2f GiB to keep, %.1f KiB each\n",
        static_cast<double>(load.queries) / machines / kDays, static_cast<double>(load.fileBytes) / kMiB / 1024,
        static_cast<double>(load.fileBytes) / 1024 / static_cast<double>(std::max<std::uint64_t>(load.files, 1)));
    const auto row = [&](const char* what, auto peak) {
        std::printf("  %-26s %8.1f %8.1f %8.1f   %8.2f %8.2f %8.2f\n", what, peak(load.requests, 3600),
                    peak(load.requests, 60), peak(load.requests, 1), peak(load.bytes, 3600) / kMiB,
                    peak(load.bytes, 60) / kMiB, peak(load.bytes, 1) / kMiB);
    };
    std::printf("  %-26s %26s   %26s\n  %-26s %8s %8s %8s   %8s %8s %8s\n", "", "requests a second", "MiB a second",
                "greatest of an", "hour", "minute", "second", "hour", "minute", "second");
    const std::int64_t busiest = BusiestDay(load.requests);
    row("all days", [](const auto& values, std::int64_t span) { return Peak(values, span); });
    row("midnight hours", [](const auto& values, std::int64_t span) { return MidnightPeak(values, span); });
    row("quiet day (the 20th)",
        [](const auto& values, std::int64_t span) { return Peak(values, span, 19 * kDay, 20 * kDay); });
    if (scenario.outageEnd > 0) {
        row("24 hours after the outage", [&](const auto& values, std::int64_t span) {
            return Peak(values, span, scenario.outageEnd, scenario.outageEnd + kDay);
        });
    }
    std::printf("  mean %.1f requests and %.2f MiB a second; the busiest day is the %lld., with %llu requests\n",
                static_cast<double>(requests) / kDays / kDay,
                static_cast<double>(Sum(load.bytes)) / kMiB / kDays / kDay, static_cast<long long>(busiest + 1),
                static_cast<unsigned long long>(Sum(load.requests, busiest * kDay, (busiest + 1) * kDay)));
    if (const std::uint64_t refused = Sum(load.refused); refused > 0) {
        std::printf("  unanswered tries %llu, at most %.1f a second in a minute; files given up for good %llu\n",
                    static_cast<unsigned long long>(refused), Peak(load.refused, 60),
                    static_cast<unsigned long long>(load.givenUp));
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int machines = argc > 1 ? std::atoi(argv[1]) : 100000;
    const fs::path picture = argc > 2 ? fs::path(argv[2]) : BuildFolder() / "bench" / "fleet.svg";
    const fleet::World world = ReadWorld();
    for (std::size_t kind = 0; kind < 3; ++kind) {
        const std::vector<std::int64_t>& sizes = world.fileSizes[kind];
        std::printf("%c file, bytes: empty %lld, 12 rows %lld, 24 rows %lld, full %lld\n", "OEW"[kind],
                    static_cast<long long>(sizes[0]), static_cast<long long>(sizes[12]),
                    static_cast<long long>(sizes[24]), static_cast<long long>(sizes.back()));
    }
    using namespace std::chrono;
    const std::int64_t first = sys_seconds(sys_days(2026y / November / 1)).time_since_epoch().count();
    const auto live = [&](const fleet::Scenario& scenario) {
        Load load = fleet::Live(world, scenario, machines, first, kWarmUp, kDays);
        PrintSums(scenario, load, machines);
        std::fflush(stdout);
        return load;
    };
    const int minutes = kSpreadMinutes;
    const Load asItIs =
        live({"As it is: the first start of a day in one of the 60 minutes after midnight", minutes, 0, 0, 0});
    const Load allAtOnce = live({"Without the jitter: all at midnight", 1, 0, 0, 0});
    const std::int64_t outage = BusiestDay(asItIs.requests);
    const Load afterOutage = live({"The server away on the busiest day, from midnight to midnight", minutes, 0,
                                   outage * kDay, (outage + 1) * kDay});
    const std::int64_t morning = outage * kDay + 8 * 3600;
    live({"The server away on that day from 8 to 11 o'clock", minutes, 0, morning, morning + 3 * 3600});
    live({"As it is, with clocks of UTC+8", minutes, 8 * 3600, 0, 0});
    std::printf("\nmachines on at the first midnight %llu of %d\n",
                static_cast<unsigned long long>(asItIs.awakeAtMidnight), machines);
    fleet::Draw(picture, asItIs, allAtOnce, afterOutage, machines);
    return 0;
}
