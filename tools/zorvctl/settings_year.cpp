// Walks a year in passes of five minutes and asks the service's rules what each of them does. The bytes are those of
// real SQLite files, made by the service's own statements.
#include "settings_year.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

#include "base/number.h"
#include "base/text.h"
#include "collection/collectors.h"
#include "common/registry.h"
#include "jobs/rules.h"
#include "output.h"
#include "settings/period_codes.h"
#include "store/telemetry_db.h"
#include "upload/file_status.h"

namespace zorvalis {

namespace {

constexpr std::int64_t kDay = 86400, kPassEvery = 300;  // as the scheduled task starts them (jobs/task_jobs.cpp)
constexpr std::int64_t kFirst = 1767225600;             // 1 January 2026, UTC
constexpr std::int64_t kTicks = 10'000'000, kFrom1601 = 11644473600;
constexpr double kMiB = 1 << 20;
constexpr std::size_t kTextLength = 24;

// The kind of sample of each of the first three timers.
constexpr std::array<CollectionKind, 3> kKinds = {CollectionKind::Thermal, CollectionKind::Battery_Power,
                                                  CollectionKind::SysInfo};
constexpr std::size_t kUpload = 3, kDownload = 4;

using Rows = std::map<CollectionKind, int>;

std::int32_t Limit(DbClass dbClass, CollectionKind kind) {
    return getRecordLimit(dbClass, TableName(kind)) + 1;  // a table holds its limit plus one
}

// The size of a file with so many rows, in bytes.
double SizeOf(const Rows& rows) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(":memory:", &opened);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(opened, sqlite3_close);
    const auto run = [&](const std::string& sql) {
        Require(sqlite3_exec(opened, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
                std::string("no database can be made in memory: ") + sqlite3_errmsg(opened));
    };
    Require(result == SQLITE_OK, "no database can be made in memory");
    for (const auto& [kind, count] : rows) {
        const MetricCatalogue& catalogue = CatalogueOf(kind);
        const auto columns = static_cast<std::int32_t>(catalogue.size());
        SampleRow row;
        for (const MetricRow& metric : catalogue) {
            row.push_back(metric.typeWord == "INTEGER"  ? "1234"
                          : metric.typeWord == "DOUBLE" ? "12.34"
                                                        : std::string(kTextLength, 'x'));
        }
        run(buildCreateTable(TableName(kind), catalogue, columns));
        for (int i = 0; i < count; ++i) {
            run(buildInsert(TableName(kind), catalogue, row, columns));
        }
    }
    const auto number = [&](const char* sql) {
        double value = 0;
        sqlite3_exec(
            opened, sql,
            [](void* to, int, char** values, char**) {
                *static_cast<double*>(to) = std::atof(values[0]);
                return 0;
            },
            &value, nullptr);
        return value;
    };
    return number("PRAGMA page_count") * number("PRAGMA page_size");
}

double InBase64(double bytes) {
    return bytes * 4 / 3 / kMiB;
}

// One row of the result while it is counted.
struct Count {
    double month = 0, busiest = 0, year = 0;
    void Add(double amount) {
        month += amount;
        year += amount;
        busiest = std::max(busiest, month);
    }
};

class Year {
public:
    explicit Year(const Json& tree) : tree_(tree) {
        months_ = ParseInt32(Text(kMonthsSetting));
        pause_ = ParseInt32(Text(kPauseSetting));
        timers_.fill(ERROR_READREG);
    }

    std::vector<YearRow> Walk() {
        for (now_ = kFirst; now_ < kFirst + 365 * kDay; now_ += kPassEvery) {
            if ((now_ - kFirst) % kDay == 0) {
                BeginDay();
            }
            Pass();
        }
        std::vector<YearRow> rows = {{"days of collecting", days_.busiest, days_.year}};
        for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
            rows.push_back({TableName(kKinds[kind]), samples_[kind].busiest, samples_[kind].year});
        }
        const double events = EventFiles();
        rows.push_back({"rows that a full table drops", dropped_.busiest, dropped_.year});
        rows.push_back({"rows that are sent", rowsSent_.busiest, rowsSent_.year});
        rows.push_back({"files that are sent", filesSent_.busiest, filesSent_.year});
        rows.push_back({"MiB that are sent", sent_.busiest, sent_.year});
        rows.push_back({"MiB more with events, at most", events, events * 12});
        rows.push_back({"settings asked for", queries_.busiest, queries_.year});
        return rows;
    }

private:
    struct File {
        std::int64_t made = 0;
        Rows rows;
        bool recorded = false, sent = false;
    };

    std::string Text(const std::string& key) const {
        std::string text;
        FindSettingText(tree_, key, text);
        return text;
    }

    void BeginDay() {
        using namespace std::chrono;
        const auto date = year_month_day(sys_days(days(now_ / kDay)));
        collectsToday_ = false;
        if (date.day() == day(1)) {
            files_.emplace_back();
            for (Count* count : {&days_, &samples_[0], &samples_[1], &samples_[2], &dropped_, &rowsSent_, &filesSent_,
                                 &sent_, &queries_}) {
                count->month = 0;
            }
        }
    }

    // In the order of a pass: new files are recorded, settings fetched, samples taken, files sent.
    void Pass() {
        if (MayCollect()) {
            for (File& file : files_) {
                file.recorded = !file.rows.empty();
            }
        }
        if (IsDue(kDownload)) {
            queries_.Add(1);
        }
        if (!MayCollect()) {
            return;
        }
        days_.Add(std::exchange(collectsToday_, true) ? 0 : 1);
        for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
            if (IsDue(kind)) {
                Sample(kind);
            }
        }
        if (IsDue(kUpload)) {
            Send();
        }
    }

    // The period is that of a machine whose week of waiting has just gone.
    bool MayCollect() {
        const auto ticks = [](std::int64_t seconds) {
            return static_cast<std::uint64_t>(seconds + kFrom1601) * kTicks;
        };
        const bool over = PeriodAt(ticks(kFirst - 8 * kDay), months_, ticks(now_)).IsOver();
        const DojobDay day = DojobDayAt(pause_, lastDay_, now_);
        if (day.state == DojobState::first || day.state == DojobState::begins) {
            lastDay_ = now_ / kDay * kDay;
        }
        return day.IsToday() && !over;
    }

    bool IsDue(std::size_t timer) {
        const std::int32_t period = PeriodSeconds(Text(kTimerNames[timer].setting));
        if (period == 0 || !TimerAt(timers_[timer], now_, period).IsDue()) {
            return false;
        }
        timers_[timer] = std::to_wstring(now_);
        return true;
    }

    void Sample(std::size_t kind) {
        File& file = files_.back();
        file.made = file.rows.empty() ? now_ : file.made;
        int& rows = file.rows[kKinds[kind]];
        const bool fits = rows < Limit(DbClass::periodic, kKinds[kind]);
        rows += fits ? 1 : 0;
        (fits ? samples_[kind] : dropped_).Add(1);
    }

    void Send() {
        for (File& file : files_) {
            if (!file.recorded || file.sent || now_ / kDay - file.made / kDay < kAgeInDays) {
                continue;
            }
            file.sent = true;  // Kept: what comes later stays on the machine
            filesSent_.Add(1);
            sent_.Add(InBase64(SizeOf(file.rows)));
            for (const auto& [kind, count] : file.rows) {
                rowsSent_.Add(count);
            }
        }
    }

    // A month's two files of events when all tables of them are full, in MiB; only of what is switched on.
    double EventFiles() const {
        double bytes = 0;
        std::map<DbClass, bool> on;
        for (std::size_t key = kTimedKinds; key < kJobWords; ++key) {
            const std::string word = NarrowBytes(kJobWord[key]);
            on[key + 1 == kJobWords ? DbClass::wmi_event : DbClass::event] |= Text(word) == word;
        }
        for (const auto& [dbClass, isOn] : on) {
            Rows rows;
            for (const CollectionKind kind :
                 {CollectionKind::Thermal, CollectionKind::Battery_Power, CollectionKind::UserBehavior}) {
                rows[kind] = Limit(dbClass, kind);
            }
            bytes += isOn && days_.year > 0 ? SizeOf(rows) : 0;
        }
        return InBase64(bytes);
    }

    const Json& tree_;
    std::int32_t months_ = 0, pause_ = 0;
    std::int64_t now_ = 0, lastDay_ = 0;
    bool collectsToday_ = false;
    std::array<std::wstring, kTimerNames.size()> timers_;
    std::vector<File> files_;
    std::array<Count, 3> samples_;
    Count days_, dropped_, rowsSent_, filesSent_, sent_, queries_;
};

}  // namespace

std::vector<YearRow> YearBySettings(const Json& tree) {
    return Year(tree).Walk();
}

std::vector<std::string> YearAssumptions() {
    return {"the machine is on all day, every day, a pass starts every five minutes, and its week of waiting is over",
            "the server answers every request, and each document is the same as this one",
            "a number takes four digits and a text " + std::to_string(kTextLength) +
                " characters; bytes are those of Base64, without the heads of the requests",
            "with events: every month's tables of events become full before their file is sent"};
}

}  // namespace zorvalis
