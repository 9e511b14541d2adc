// The clock of the Linux host, shifted by `set_clock` and by the machine's clock.json.
#include "platform/clock.h"

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cmath>

#include "platform/linux/machine_json.h"
#include "platform/linux/machine_path.h"

namespace platform {
namespace {

constexpr char kClockFile[] = "clock.json";
constexpr std::int64_t kMicroseconds = 1000000;
constexpr std::uint64_t kTicksFrom1601 = 116444736000000000;  // to 1970, in units of 100 nanoseconds
constexpr double kLargestOffset = 1e11;                       // seconds, about three thousand years
constexpr std::int64_t kEndOfCalendar = 32535215999;          // the end of 3000, as in Windows' C library

std::atomic<std::int64_t> switch_offset{0};
std::atomic<double> switch_factor{1.0};

struct MachineClock {
    double offset = 0;  // seconds
    double factor = 1;
};

// clock.json is looked for at each use, since any program may change it at any time. Most machines have none, and to
// ask whether it is there is the cheapest call that shows a change at once.
MachineClock read_machine_clock() {
    // Values of the last sound file: while an editor has written only half of it, the clock must not jump.
    static std::atomic<double> last_offset{0};
    static std::atomic<double> last_factor{1};
    if (::access(machine_path(kClockFile).c_str(), F_OK) != 0) {
        last_offset = 0;
        last_factor = 1;
        return {};
    }
    const auto json = read_machine_json(kClockFile);
    if (!json) {
        return {last_offset, last_factor};
    }
    const auto number = [&json](const char* name, double missing) {
        const auto member = json->find(name);
        if (member == json->end()) {
            return missing;
        }
        return member->is_number() ? member->get<double>() : std::nan("");
    };
    const MachineClock read{number("offset", 0), number("wait", 1)};
    const bool sound = std::abs(read.offset) <= kLargestOffset && read.factor >= 0 && std::isfinite(read.factor);
    if (sound) {
        last_offset = read.offset;
        last_factor = read.factor;
    }
    return {last_offset, last_factor};
}

std::int64_t offset_microseconds() {
    return switch_offset.load() * kMicroseconds + std::llround(read_machine_clock().offset * 1e6);
}

timespec true_time() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

}  // namespace

void set_clock(const ClockSwitch& clock) {
    switch_offset = clock.offset_seconds;
    switch_factor = clock.wait_factor;
}

std::int64_t now_seconds() {
    const std::int64_t now = now_microseconds();
    return now / kMicroseconds - (now % kMicroseconds < 0 ? 1 : 0);
}

std::uint64_t now_ticks() {
    const timespec now = true_time();
    const std::int64_t ticks = now.tv_sec * kMicroseconds * 10 + now.tv_nsec / 100;
    return kTicksFrom1601 + static_cast<std::uint64_t>(ticks + offset_microseconds() * 10);
}

std::int64_t now_microseconds() {
    const timespec now = true_time();
    return now.tv_sec * kMicroseconds + now.tv_nsec / 1000 + offset_microseconds();
}

bool local_time(std::int64_t seconds, std::tm& local) {
    ::tzset();  // localtime_r alone would keep the time zone of its first call
    local = std::tm{};
    const std::time_t time = seconds;
    if (seconds >= 0 && seconds <= kEndOfCalendar && ::localtime_r(&time, &local) != nullptr) {
        return true;
    }
    local = std::tm{};
    return false;
}

std::int64_t local_seconds(std::tm& local) {
    local.tm_isdst = -1;
    return ::mktime(&local);
}

void sleep_milliseconds(std::uint32_t milliseconds) {
    const std::int64_t wait = scaled_wait(milliseconds);
    timespec rest{wait / kMicroseconds, wait % kMicroseconds * 1000};
    // For a wait of 0 the kernel is not asked: even an empty sleep gives the processor away for a while.
    while (wait > 0 && ::clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
    }
}

std::int64_t scaled_wait(std::uint32_t milliseconds) {
    const double wait = milliseconds * 1000.0 * switch_factor.load() * read_machine_clock().factor;
    return wait < 1e15 ? std::llround(wait) : static_cast<std::int64_t>(1e15);
}

}  // namespace platform
