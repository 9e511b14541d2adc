// The last line of a status: looks ahead over the passes to come for the one that stores something.
#include <algorithm>
#include <ctime>

#include "facts.h"
#include "jobs/schedule_predicates.h"
#include "platform/clock.h"

namespace zorvalis {

namespace {

constexpr std::int64_t kHorizon = 400 * std::int64_t{86400}, kPassSeconds = 300;

int MonthOf(std::int64_t time) {
    std::tm local{};
    platform::local_time(time, local);
    return local.tm_year * 12 + local.tm_mon;
}

// Whether a kind of sample is due at that time and its table has room. A pass that collects starts the timer of a kind
// anew whose table is full.
bool HasWork(const Facts& facts, std::map<std::string, Due>& dues, std::int64_t time, bool collects) {
    bool work = false;
    for (std::size_t i = 0; i + 1 < kTimedKinds; ++i) {
        const std::string kind = kTimerNames[i].setting;
        Due& due = dues[kind];
        if (!due.at || *due.at > time) {
            continue;
        }
        const bool full = facts.full.count(kind) != 0 && MonthOf(time) == MonthOf(facts.now);
        work |= !full;
        due.at = full && collects ? WholeMinute(time) + due.period : *due.at;
    }
    return work;
}

}  // namespace

Verdict Judge(const Facts& facts) {
    const Link* broken = nullptr;
    const Link* unknown = nullptr;
    bool waits = true;
    std::string warnings;
    for (const Link& link : facts.links) {
        if (link.state == LinkState::broken) {
            broken = broken == nullptr || (broken->passes && !link.passes) ? &link : broken;
            waits = waits && link.passes;
        }
        unknown = unknown == nullptr && link.state == LinkState::unknown ? &link : unknown;
        warnings += link.state != LinkState::warning ? "" : (warnings.empty() ? "; with warnings: " : ", ") + link.name;
    }
    Verdict verdict;
    bool missed = false, putOff = false;
    if (waits && unknown == nullptr && facts.firstStart > 0) {
        auto ask = facts.ahead;  // a copy, since asking moves the do-job day on
        auto dues = facts.due;
        std::int64_t interval = facts.interval;
        for (std::int64_t time = facts.firstStart; time < facts.now + kHorizon && !verdict.next;) {
            const PassAhead pass = ask(time);
            const bool work = HasWork(facts, dues, time, pass.collects);
            verdict.next = pass.collects && work ? std::optional(time) : std::nullopt;
            missed |= work && !pass.collects;
            putOff |= pass.putsOff;
            if (!pass.putsOff && interval == 0) {
                break;  // a task that starts once
            }
            interval = pass.putsOff ? kPassSeconds : interval;  // the pass makes the task anew
            time = pass.putsOff ? MidnightBefore(MidnightBefore(time) + 26 * 3600) : time + interval;
        }
    }
    const std::string next =
        !verdict.next ? "no pass stores anything until that is mended"
        : putOff ? "the next pass that stores something comes on " + MinuteText(*verdict.next) + " or within an hour"
                 : "the next pass that stores something starts at " + MinuteText(*verdict.next);
    verdict.code = broken != nullptr ? 1 : unknown != nullptr ? 2 : missed || !verdict.next ? 1 : 0;
    verdict.words = broken != nullptr    ? "Nothing is collected: " + broken->why + "; " + next + "."
                    : unknown != nullptr ? "It cannot be told whether anything is collected: " + unknown->why + "."
                    : verdict.code == 1
                        ? "Nothing is collected: the do-job day or the period ends before anything is due; " +
                              (verdict.next ? next : "no pass to come stores anything") + "."
                        : "Collecting goes on by itself: " + next + warnings + ".";
    return verdict;
}

}  // namespace zorvalis
