#include "jobs/rules.h"

#include <cstdio>

#include "base/number.h"
#include "base/text.h"
#include "common/registry.h"
#include "common/time.h"

namespace zorvalis {
namespace {

constexpr std::int32_t kDay = 86400;
constexpr std::int32_t kMonth = 2592000;
constexpr double kWeek = 604800.0;
constexpr std::uint64_t kEightHours = 8 * 3600 * kTicksPerSecond;
constexpr std::int64_t kFrom1601 = 11644473600;

std::optional<std::uint64_t> TicksOf(const SystemTime& time) {
    std::uint64_t ticks = 0;
    return SystemTimeToTicks(time, ticks) ? std::optional(ticks) : std::nullopt;
}

}  // namespace

bool IsCollectingChassis(const std::wstring& chassis) {
    return chassis == L"Notebook";
}

bool IsOn(MainSwitch mainSwitch) {
    return mainSwitch == MainSwitch::on || mainSwitch == MainSwitch::never_asked;
}

ImageState ImageStateOf(const std::wstring& text) {
    return text == ERROR_READREG             ? ImageState::missing
           : text == L"IMAGE_STATE_COMPLETE" ? ImageState::complete
                                             : ImageState::other;
}

bool HasThreeFields(const std::wstring& date) {
    return SplitString(date, L'/').size() == 3;
}

ManufacturingDate ChooseDate(const std::wstring& factory, const std::wstring& substitute) {
    return HasThreeFields(factory)      ? ManufacturingDate{DateSource::factory, factory}
           : HasThreeFields(substitute) ? ManufacturingDate{DateSource::substitute, substitute}
                                        : ManufacturingDate{};
}

Day DayOf(const std::wstring& date) {
    const std::vector<std::wstring> fields = SplitString(date, L'/');
    return {ParseInt32(fields[0]), ParseInt32(fields[1]), ParseInt32(fields[2])};
}

double AgeInSeconds(const Day& day, std::int64_t midnight, std::int64_t now) {
    if (midnight == -1) {
        // The C libraries differ in the years that they know; the mean year tells past from future.
        return static_cast<double>(now) - (static_cast<double>(day.year) - 1970) * 31556952;
    }
    return static_cast<double>(now) - static_cast<double>(midnight);
}

bool IsOlderThanAWeek(double age) {
    return age > kWeek;
}

bool HoldsActivation(const std::string& text) {
    return text.empty() || static_cast<unsigned char>(text[0]) != 255;
}

std::optional<std::uint64_t> ActivationTicks(const std::string& text) {
    if (!HoldsActivation(text)) {
        return std::nullopt;
    }
    SystemTime time;
    std::sscanf(text.c_str(), "%hu-%hu-%hu %hu:%hu:%hu", &time.year, &time.month, &time.day, &time.hour, &time.minute,
                &time.second);
    const std::optional<std::uint64_t> ticks = TicksOf(time);
    return ticks ? std::optional(*ticks - kEightHours) : std::nullopt;
}

std::optional<std::uint64_t> ManufacturingTicks(const std::string& date) {
    SystemTime time;
    std::sscanf(date.c_str(), "%hu/%hu/%hu", &time.year, &time.month, &time.day);
    return TicksOf(time);
}

CollectPeriod PeriodAt(std::optional<std::uint64_t> start, std::int32_t months, std::uint64_t nowTicks) {
    if (!start) {
        return {PeriodState::no_start, 0, 0};
    }
    // Kept: unsigned throughout, so that a start in the future is very long ago, and a period of one tick's age over.
    const std::uint32_t limit = static_cast<std::uint32_t>(WrapMultiply(months, kMonth));
    const std::uint64_t difference = nowTicks - *start, age = difference / kTicksPerSecond;
    const PeriodState state = *start > nowTicks                ? PeriodState::future
                              : difference != 0 && age < limit ? PeriodState::within
                                                               : PeriodState::over;
    return {state, age, static_cast<std::int64_t>(*start / kTicksPerSecond) - kFrom1601 + limit};
}

DojobDay DojobDayAt(std::int32_t pauseDays, std::int64_t last, std::int64_t now) {
    const std::int64_t pause = WrapMultiply(pauseDays, kDay);
    const std::int64_t gapEnd = WrapAdd(last, pause), next = WrapAdd(gapEnd, kDay);
    const DojobState state = last == 0                        ? DojobState::first
                             : next <= now                    ? DojobState::begins
                             : WrapSubtract(now, last) < kDay ? DojobState::runs
                                                              : DojobState::paused;
    return {state, pause, gapEnd, next};
}

DojobDay DojobDayOfPass(std::int32_t pauseDays, std::int64_t last, std::int64_t midnight, std::int64_t now) {
    const DojobDay first = DojobDayAt(pauseDays, last, now);
    const bool stored = first.state == DojobState::first || first.state == DojobState::begins;
    return stored ? DojobDayAt(pauseDays, midnight, now) : first;
}

std::int64_t LastDojobTime(const std::wstring& stored) {
    return stored == ERROR_READREG ? 0 : ParseInt64(stored);
}

RegTimer TimerAt(const std::wstring& stored, std::int64_t now, std::int32_t interval) {
    if (stored == ERROR_READREG) {
        return {TimerState::first, now};
    }
    const std::int64_t last = ParseInt64(stored), next = WrapAdd(last, interval);
    return {next <= now ? TimerState::due : last > now ? TimerState::future : TimerState::waiting, next};
}

std::int64_t WholeMinute(std::int64_t seconds) {
    return seconds / 60 * 60;
}

std::int64_t PostponedTimer(const std::wstring& stored, std::int64_t now, std::int32_t delay) {
    // Without a stored time, one that makes a daily interval come due after the delay.
    return WrapAdd(stored == ERROR_READREG ? WholeMinute(now) - kDay : ParseInt64(stored), delay);
}

}  // namespace zorvalis
