// Times as text: local calendar times, decimal seconds since 1970, and the calendar fields of the firmware's texts.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// Calendar fields in the layout of Windows' SYSTEMTIME, which is handed to a closed library as it is.
struct SystemTime {
    std::uint16_t year = 0;
    std::uint16_t month = 0;
    std::uint16_t dayOfWeek = 0;
    std::uint16_t day = 0;
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    std::uint16_t milliseconds = 0;
};

constexpr std::int64_t kTicksPerSecond = 10000000;  // a tick is 100 nanoseconds

// "2026-11-12 09:08:07" in local time; empty for a time that the calendar does not reach. The first takes decimal
// seconds since 1970 and throws as ParseInt64 does for another text.
std::string EpochTextToTimeString(const std::string& epochText);
std::string NowTimeString();

// "2026/11/12" in local time.
std::string TodayDateString();

// From a text like "2026-11-12 09:08:07.006". Fields that are missing or broken stay 0, like the day of the week.
SystemTime ParseSystemTime(const std::string& text);

// Ticks since the beginning of 1601. False when the fields are not a date and time of the years 1601 to 30827.
bool SystemTimeToTicks(const SystemTime& time, std::uint64_t& ticks);

}  // namespace zorvalis
