#include "common/time.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "base/number.h"
#include "platform/clock.h"

namespace zorvalis {
namespace {

// `format` is strftime's, without the short forms %F and %T: not every C library knows them.
std::string LocalText(std::int64_t seconds, const char* format) {
    std::tm local{};
    if (!platform::local_time(seconds, local)) {
        return "";
    }
    std::array<char, 80> buffer{};
    std::strftime(buffer.data(), buffer.size(), format, &local);
    return buffer.data();
}

constexpr char kTimeFormat[] = "%Y-%m-%d %H:%M:%S";

}  // namespace

std::string EpochTextToTimeString(const std::string& epochText) {
    return LocalText(ParseInt64(epochText), kTimeFormat);
}

std::string NowTimeString() {
    return LocalText(platform::now_seconds(), kTimeFormat);
}

std::string TodayDateString() {
    return LocalText(platform::now_seconds(), "%Y/%m/%d");
}

SystemTime ParseSystemTime(const std::string& text) {
    SystemTime time;
    std::sscanf(text.c_str(), "%hu-%02hu-%02hu %02hu:%02hu:%02hu.%03hu", &time.year, &time.month, &time.day, &time.hour,
                &time.minute, &time.second, &time.milliseconds);
    return time;
}

bool SystemTimeToTicks(const SystemTime& time, std::uint64_t& ticks) {
    using namespace std::chrono;
    const year_month_day date{year{time.year}, month{time.month}, day{time.day}};
    // Months and days are compared too, since the calendar types keep only their lowest byte.
    if (time.year < 1601 || time.year > 30827 || time.month > 12 || time.day > 31 || !date.ok() || time.hour > 23 ||
        time.minute > 59 || time.second > 59 || time.milliseconds > 999) {
        return false;
    }
    const sys_days origin = year{1601} / January / 1;
    const std::int64_t days = (sys_days(date) - origin).count();
    const std::int64_t seconds = ((days * 24 + time.hour) * 60 + time.minute) * 60 + time.second;
    ticks = static_cast<std::uint64_t>(seconds) * kTicksPerSecond + std::uint64_t{time.milliseconds} * 10000;
    return true;
}

}  // namespace zorvalis
