// Windows' clock and sleeps. There is no clock.json here: only `set_clock` shifts and shortens.
#include "platform/clock.h"

#include <windows.h>

#include <atomic>
#include <cmath>

#include "platform/windows/wait.h"

namespace platform {
namespace {

constexpr std::int64_t kTicksFrom1601 = 116444736000000000;  // to 1970, in units of 100 nanoseconds
constexpr std::int64_t kTicks = 10000000;                    // in a second

std::atomic<std::int64_t> switch_offset{0};
std::atomic<double> switch_factor{1.0};

// In units of 100 nanoseconds, shifted by the switch.
std::int64_t ticks_since_1970() {
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    const std::uint64_t ticks = std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
    return static_cast<std::int64_t>(ticks) - kTicksFrom1601 + switch_offset.load() * kTicks;
}

// Rounds down, also for times before 1970.
std::int64_t floor_divide(std::int64_t ticks, std::int64_t unit) {
    return ticks / unit - (ticks % unit < 0 ? 1 : 0);
}

// The C runtime reads the time zone only once, so _tzset reads it again for each conversion. It writes variables that
// all threads share, hence the lock.
template <class Convert>
auto in_present_zone(Convert convert) {
    static SRWLOCK lock = SRWLOCK_INIT;
    ::AcquireSRWLockExclusive(&lock);
    ::_tzset();
    const auto result = convert();
    ::ReleaseSRWLockExclusive(&lock);
    return result;
}

}  // namespace

void set_clock(const ClockSwitch& clock) {
    switch_offset = clock.offset_seconds;
    switch_factor = clock.wait_factor;
}

std::int64_t now_seconds() {
    return floor_divide(ticks_since_1970(), kTicks);
}

std::uint64_t now_ticks() {
    return static_cast<std::uint64_t>(ticks_since_1970() + kTicksFrom1601);
}

std::int64_t now_microseconds() {
    return floor_divide(ticks_since_1970(), 10);
}

bool local_time(std::int64_t seconds, std::tm& local) {
    const __time64_t time = seconds;
    if (in_present_zone([&] { return ::_localtime64_s(&local, &time); }) == 0) {
        return true;
    }
    local = std::tm{};  // the C runtime leaves -1 in every field
    return false;
}

std::int64_t local_seconds(std::tm& local) {
    local.tm_isdst = -1;
    return in_present_zone([&] { return ::_mktime64(&local); });
}

void sleep_milliseconds(std::uint32_t milliseconds) {
    ::Sleep(wait_milliseconds(milliseconds));
}

std::int64_t scaled_wait(std::uint32_t milliseconds) {
    const double wait = milliseconds * 1000.0 * switch_factor.load();
    return wait < 1e15 ? std::llround(wait) : static_cast<std::int64_t>(1e15);
}

}  // namespace platform
