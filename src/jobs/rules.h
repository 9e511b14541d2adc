// The rules of when this machine collects, as pure functions: they take texts of the registry, settings and times, and
// give a verdict with its reason. They read, write and log nothing. The predicates and JobManager ask them and act;
// zorvctl asks them and tells.
//
// A missing registry value is the text "ERROR_READREG". Times are seconds since 1970; ticks are units of 100
// nanoseconds since 1601. A text that should begin with a number and does not raises the number parser's error, which
// ends the job that asked.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "settings/setting_file_manager.h"

namespace zorvalis {

// The kind of computer, as the hardware library calls it. Nothing is collected on any but a "Notebook".
bool IsCollectingChassis(const std::wstring& chassis);

// Whether the user lets the machine collect. One who was never asked does.
bool IsOn(MainSwitch mainSwitch);

// How far Windows' own setup has come. Nothing is collected in a factory image or the out-of-box setup.
enum class ImageState { missing, complete, other };
ImageState ImageStateOf(const std::wstring& text);

// A date of manufacture is year, month and day with slashes between them. The factory's wins over the substitute that
// the service writes when it finds neither.
enum class DateSource { none, factory, substitute };
struct ManufacturingDate {
    DateSource source = DateSource::none;
    std::wstring text;  // empty without a source
};
bool HasThreeFields(const std::wstring& date);
ManufacturingDate ChooseDate(const std::wstring& factory, const std::wstring& substitute);

// The week of waiting. `midnight` is local midnight of the day, or -1 when the C library has none.
struct Day {
    std::int32_t year, month, day;
};
Day DayOf(const std::wstring& date);
double AgeInSeconds(const Day& day, std::int64_t midnight, std::int64_t now);
bool IsOlderThanAWeek(double age);

// When the collection period began, in ticks. The firmware's text is local time of UTC+8, or begins with the character
// 255 when there is none; the date of manufacture counts from midnight UTC.
bool HoldsActivation(const std::string& text);
std::optional<std::uint64_t> ActivationTicks(const std::string& text);
std::optional<std::uint64_t> ManufacturingTicks(const std::string& date);

// The collection period: `months` of thirty days.
enum class PeriodState { no_start, future, within, over };
struct CollectPeriod {
    PeriodState state;
    std::uint64_t age;   // in seconds; an enormous one for a start in the future
    std::int64_t until;  // where there is a start
    bool IsOver() const { return state != PeriodState::within; }
};
CollectPeriod PeriodAt(std::optional<std::uint64_t> start, std::int32_t months, std::uint64_t nowTicks);

// The do-job day: 24 hours from a stored local midnight, `last`, then `pauseDays` days of pause.
enum class DojobState { first, begins, runs, paused };
struct DojobDay {
    DojobState state;
    std::int64_t pause;   // in seconds
    std::int64_t gapEnd;  // `last` and the pause
    std::int64_t next;    // a day later: from when on a pass may begin the next do-job day
    bool IsToday() const { return state != DojobState::paused; }
};
DojobDay DojobDayAt(std::int32_t pauseDays, std::int64_t last, std::int64_t now);
std::int64_t LastDojobTime(const std::wstring& stored);  // 0: there was none

// What a pass makes of it, which asks twice: for new files first, and that begins a due day at local midnight, then for
// samples. So no day begins in the 25th hour of a day.
DojobDay DojobDayOfPass(std::int32_t pauseDays, std::int64_t last, std::int64_t midnight, std::int64_t now);

// The timers: which registry value remembers when the work of a periodic setting was last done. Those of the timed
// kinds come first, in the order of their indices.
struct TimerName {
    const char* setting;
    const wchar_t* value;
};
inline constexpr std::size_t kTimedKinds = 4;
inline constexpr std::array<TimerName, kTimedKinds + 1> kTimerNames = {{
    {"thermal", L"GetThermal"},
    {"battery_power", L"GetBatteryPower"},
    {"systeminfo", L"GetSystemInfo"},
    {"upload", L"upload"},
    {"downloadSetting", L"getSettingFile"},
}};

// `future`: not due, and last done at a time that is still to come, as after a clock was set back.
enum class TimerState { first, due, waiting, future };
struct RegTimer {
    TimerState state;
    std::int64_t next;  // when it is due, or was
    bool IsDue() const { return state == TimerState::first || state == TimerState::due; }
};
RegTimer TimerAt(const std::wstring& stored, std::int64_t now, std::int32_t interval);

// What a timer is set to: its work is done now, or is to be tried again kRetryDelay later than it would have been due.
inline constexpr std::int32_t kRetryDelay = 3600;
std::int64_t WholeMinute(std::int64_t seconds);
std::int64_t PostponedTimer(const std::wstring& stored, std::int64_t now, std::int32_t delay);

}  // namespace zorvalis
