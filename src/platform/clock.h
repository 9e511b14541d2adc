// The machine's clock and its waits.
//
// Tests and simulations shift the clock and shorten waits through one switch, `set_clock`; on the stand-in machine
// its clock.json does the same for every process of the machine. Both add up.
#pragma once

#include <cstdint>
#include <ctime>

namespace platform {

struct ClockSwitch {
    std::int64_t offset_seconds = 0;
    double wait_factor = 1.0;  // on sleeps, timers and timed waits; a running wait keeps its factor
};

void set_clock(const ClockSwitch& clock);

// Seconds since 1970, UTC.
std::int64_t now_seconds();

// Units of 100 nanoseconds since 1601, UTC.
std::uint64_t now_ticks();

// Microseconds since 1970, for time stamps in logs.
std::int64_t now_microseconds();

// Both go by the machine's time zone of this moment: a notebook travels while the service runs.
//
// False when the time has no calendar form; `local` is zeroed then.
bool local_time(std::int64_t seconds, std::tm& local);

// The way back. Fields beyond their range carry over, and `local` is put right; whether summer time rules is found
// out. -1 outside the C library's years.
std::int64_t local_seconds(std::tm& local);

void sleep_milliseconds(std::uint32_t milliseconds);

// The length of a wait of `milliseconds` under the present switch, in microseconds.
std::int64_t scaled_wait(std::uint32_t milliseconds);

}  // namespace platform
