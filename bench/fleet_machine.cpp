// One machine after the other lives through the days. Its passes go through the steps of `-j0` (service/passes.cpp) and
// ask the core's rules; a pass in which nothing can come due is left out. What is assumed about people and networks is
// at the top; docs/fleet.md tells it.
#include <algorithm>
#include <chrono>
#include <random>
#include <string>

#include "collection/collectors.h"
#include "collection/triggers.h"
#include "common/registry.h"
#include "fleet.h"
#include "jobs/rules.h"
#include "jobs/task_scheduler_setting.h"
#include "service/zorvalis_service.h"
#include "upload/file_status.h"

namespace fleet {
namespace {

using namespace zorvalis;

// When machines are on: a stretch of use may happen on a day, begins and lasts by these hours, plus or minus the
// spread. Each begins with a resume and an opened lid and ends with the opposite.
struct Stretch {
    double onWeekdays, onWeekends;  // how likely
    double begin, beginSpread, hours, hoursSpread;
};
struct Habit {
    double share;  // of the machines
    std::vector<Stretch> stretches;
};
const std::vector<Habit> kHabits = {
    {0.10, {{1, 1, 0, 0, 24, 0}}},                                                 // never sleeps
    {0.55, {{0.93, 0.1, 8.25, 1.25, 4, 0.5}, {0.9, 0.1, 13, 0.5, 4.5, 1.5}}},      // at work, closed at noon
    {0.35, {{0.65, 0.75, 17.5, 3, 2.5, 1.5}, {0.35, 0.45, 21.5, 1.5, 2.5, 1.5}}},  // at home, some past midnight
};
constexpr double kPowerPlug = 0.6;      // of the stretches the mains come and go once
constexpr double kHardwareEvent = .05;  // of the stretches there is one hardware event
constexpr double kOldest = 48;          // months of thirty days since manufacture, evenly spread

// What the network adds, as measured on loopback between the product and the reference server: bytes of a connection
// with its TLS handshake and the headers of one request and answer, both ways together, and of what is told in JSON.
constexpr std::uint32_t kConnection = 2900, kQuery = 650, kTold = 200;
constexpr double kLag = 5;         // seconds within which a pass, begun with the whole minute, is on the network
constexpr double kRoundTrip = .3;  // seconds for a connection, a request and its answer

struct File {
    std::size_t kind = 0;  // 0 to 2: O, E, W
    int month = 0;
    std::int64_t created = 0;  // the local day
    bool registered = false, sent = false;
    std::int32_t rows = 0, tries = 0;
};

class Machine {
public:
    Machine(const World& world, const Scenario& scenario, std::int64_t first, int warmUp, unsigned number, Load& load)
        : world_(world),
          scenario_(scenario),
          first_(first),
          end_(static_cast<std::int64_t>(load.requests.size())),
          random_(number),
          load_(load) {
        timers_.fill(ERROR_READREG);
        double share = Uniform();
        while (habit_ + 1 < kHabits.size() && share > kHabits[habit_].share) {
            share -= kHabits[habit_++].share;
        }
        made_ = TicksAt(first - static_cast<std::int64_t>(Uniform() * kOldest * 30 * kDay));
        begin_ = first - warmUp * kDay + static_cast<std::int64_t>(Uniform() * 30 * kDay);
    }

    void Live() {
        const std::int64_t last = first_ + end_;
        std::int64_t on = begin_, off = begin_;
        if (habit_ == 0) {
            Use(on, last);
            return;
        }
        for (std::int64_t day = (begin_ + scenario_.zone) / kDay; day * kDay - scenario_.zone < last; ++day) {
            const bool weekend = (day + 4) % 7 % 6 == 0;  // day 0 was a Thursday
            for (const Stretch& one : kHabits[habit_].stretches) {
                if (Uniform() < (weekend ? one.onWeekends : one.onWeekdays)) {
                    on = day * kDay - scenario_.zone + Hours(one.begin, one.beginSpread);
                    on = std::max(on, off + 600);
                    const std::int64_t until = on + Hours(one.hours, one.hoursSpread);
                    if (until > on && on < last) {
                        Use(on, std::min(until, last));
                        off = until;
                    }
                }
            }
        }
    }

private:
    double Uniform() { return static_cast<double>(random_() >> 11) * 0x1p-53; }
    std::int64_t Hours(double middle, double spread) {  // most of them near the middle
        return static_cast<std::int64_t>((middle + spread * (Uniform() + Uniform() - 1)) * 3600);
    }
    static std::uint64_t TicksAt(std::int64_t time) {
        return static_cast<std::uint64_t>(time + 11644473600) * 10000000;
    }
    std::int64_t LocalDay(std::int64_t time) const { return (time + scenario_.zone) / kDay; }
    std::int64_t Midnight(std::int64_t time) const { return LocalDay(time) * kDay - scenario_.zone; }

    // As the product's predicates: the day that the rule begins is stored.
    DojobDay Day(std::int64_t now) {
        const DojobDay day = DojobDayAt(world_.pauseDays, lastDojob_, now);
        if (day.state == DojobState::first || day.state == DojobState::begins) {
            lastDojob_ = Midnight(now);
        }
        return day;
    }
    bool IsOver(std::int64_t now) const { return PeriodAt(made_, world_.months, TicksAt(now)).IsOver(); }
    RegTimer Timer(std::size_t index, std::int64_t now) const {
        return TimerAt(timers_[index], now, world_.periods[index]);
    }
    void Restart(std::size_t index, std::int64_t now) { timers_[index] = std::to_wstring(WholeMinute(now)); }

    void Use(std::int64_t on, std::int64_t off) {
        if (on <= first_ && off > first_) {
            ++load_.awakeAtMidnight;
        }
        const bool plug = Uniform() < kPowerPlug;
        Events(1, on, plug ? 3 : 2);
        if (Uniform() < kHardwareEvent) {
            Events(2, (on + off) / 2, 1);
        }
        std::int64_t next = SoonStart(on + kWorkDelay / 1000);
        while (next < off) {
            next = Pass(next);
        }
        Events(1, off, plug ? 3 : 2);
    }

    // Events are recorded by the service, which takes the same rules.
    void Events(std::size_t kind, std::int64_t now, std::int32_t rows) {
        const bool over = IsOver(now);
        if (Day(now).IsToday() && !over) {
            Current(kind, now).rows += rows;
        }
    }

    // The file of the class and month.
    File& Current(std::size_t kind, std::int64_t now) {
        const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{LocalDay(now)}}};
        const int month = static_cast<int>(date.year()) * 12 + static_cast<int>(static_cast<unsigned>(date.month()));
        for (File& file : files_) {
            if (file.kind == kind && file.month == month) {
                return file;
            }
        }
        std::erase_if(files_, [&](const File& file) { return file.kind == kind && file.sent; });
        return files_.emplace_back(File{kind, month, LocalDay(now)});
    }

    // One pass; returns when the next one begins in which something can happen.
    std::int64_t Pass(std::int64_t now) {
        const bool over = IsOver(now);
        if (!over && Day(now).IsToday()) {
            for (File& file : files_) {
                file.registered = true;
            }
        }
        sending_ = static_cast<double>(now) + Uniform() * kLag;
        constexpr std::size_t kQueryTimer = kTimedKinds, kUploadTimer = kTimedKinds - 1;
        if (Timer(kQueryTimer, now).IsDue()) {
            load_.queries += Request(kQuery) && IsShown(now) ? 1 : 0;
            Restart(kQueryTimer, now);  // Kept by the product: also when the server did not answer
        }
        if (const bool today = Day(now).IsToday(); today && !over) {
            bool sampled = false;
            for (std::size_t kind = 0; kind < kUploadTimer; ++kind) {
                if (Timer(kind, now).IsDue()) {
                    Restart(kind, now);
                    sampled |= kTimerNames[kind].value == std::wstring_view(L"GetThermal");
                }
            }
            if (sampled) {
                ++Current(0, now).rows;
            }
            if (Timer(kUploadTimer, now).IsDue()) {
                if (Upload(now)) {
                    Restart(kUploadTimer, now);
                } else {
                    timers_[kUploadTimer] = std::to_wstring(PostponedTimer(timers_[kUploadTimer], now, kRetryDelay));
                }
            }
        }
        const DojobDay day = Day(now);
        if (!day.IsToday()) {  // the task is put off to tomorrow
            const auto minute = static_cast<std::int64_t>(Uniform() * scenario_.spreadMinutes);
            return Midnight(now) + kDay + minute * 60;
        }
        std::int64_t soonest = day.next - day.pause;  // the day's end, as far as a pass before it knows
        if (day.state != DojobState::runs) {
            soonest = lastDojob_ + kDay;
        }
        for (std::size_t index = 0; index < timers_.size(); ++index) {
            if (index == kQueryTimer || !over) {
                soonest = std::min(soonest, Timer(index, now).next);
            }
        }
        return now + std::max<std::int64_t>(1, (soonest - now + kPassSeconds - 1) / kPassSeconds) * kPassSeconds;
    }

    // Whether every file that is due was taken.
    bool Upload(std::int64_t now) {
        bool taken = true;
        for (std::size_t kind = 0; kind < 3; ++kind) {
            for (File& file : files_) {
                // As the statement that lists them: days of UTC against the local day of the file's making.
                if (file.kind == kind && file.registered && !file.sent && file.tries < kMostTries &&
                    file.created <= now / kDay - kAgeInDays) {
                    ++file.tries;
                    file.sent = Send(file, now);
                    taken &= file.sent;
                    load_.givenUp += !file.sent && file.tries == kMostTries && IsShown(now) ? 1 : 0;
                }
            }
        }
        return taken;
    }

    bool Send(const File& file, std::int64_t now) {
        const std::vector<std::int64_t>& sizes = world_.fileSizes[file.kind];
        const std::int64_t size = sizes[std::min<std::size_t>(static_cast<std::size_t>(file.rows), sizes.size() - 1)];
        if (!Request(kTold)) {
            return false;
        }
        const std::int64_t chunk = ChunkSizeOf(kChunkIndex);
        for (std::int64_t offset = 0; offset < size; offset += chunk) {
            sending_ += kPause / 1e3;
            Request(static_cast<std::uint32_t>((std::min(chunk, size - offset) + 2) / 3 * 4) + kTold);
            load_.chunks += IsShown(now) ? 1 : 0;
        }
        sending_ += kPause / 1e3;
        Request(kTold);
        if (IsShown(now)) {
            ++load_.files;
            load_.fileBytes += static_cast<std::uint64_t>(size);
        }
        return true;
    }

    bool IsShown(std::int64_t now) const { return now >= first_ && now < first_ + end_; }

    // One request at `sending_`, which moves on. False when the server cannot be reached.
    bool Request(std::uint32_t bytes) {
        const auto second = static_cast<std::int64_t>(sending_) - first_;
        sending_ += kRoundTrip;
        const bool shown = second >= 0 && second < end_;
        const bool refused = second >= scenario_.outageBegin && second < scenario_.outageEnd;
        if (shown && refused) {
            ++load_.refused[static_cast<std::size_t>(second)];
        } else if (shown) {
            ++load_.requests[static_cast<std::size_t>(second)];
            load_.bytes[static_cast<std::size_t>(second)] += bytes + kConnection;
        }
        return !refused;
    }

    const World& world_;
    const Scenario& scenario_;
    std::int64_t first_, end_;
    std::mt19937_64 random_;
    Load& load_;
    std::size_t habit_ = 0;
    std::uint64_t made_ = 0;
    std::int64_t begin_ = 0, lastDojob_ = 0;
    double sending_ = 0;
    std::array<std::wstring, kTimerNames.size()> timers_;
    std::vector<File> files_;
};

}  // namespace

Load Live(const World& world, const Scenario& scenario, int machines, std::int64_t first, int warmUp, int days) {
    Load load(days);
    for (int number = 0; number < machines; ++number) {
        Machine(world, scenario, first - scenario.zone, warmUp, static_cast<unsigned>(number), load).Live();
    }
    return load;
}

}  // namespace fleet
