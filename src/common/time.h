// Times as text: local calendar times, decimal seconds since 1970, and the calendar fields of the firmware's texts.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// Eight fields in the system's order.
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

constexpr std::int64_t kTicksPerSecond = 10000000;

// "2026-11-12 09:08:07" in local time, empty for a time without a calendar form. The first raises the number parser's
// errors.
std::string EpochTextToTimeString(const std::string& epochText);
std::string NowTimeString();

// "2026/11/12" in local time.
std::string TodayDateString();

// From a text like "2026-11-12 09:08:07.006"; fields that are missing stay 0.
SystemTime ParseSystemTime(const std::string& text);

// Units of 100 nanoseconds since 1601. False when the fields are no date between 1601 and 30827.
bool SystemTimeToTicks(const SystemTime& time, std::uint64_t& ticks);

}  // namespace zorvalis
