// The machine's clock and its waits. Any thread.
//
// Tests and simulations shift the clock and shorten waits of their own process by `set_clock`. On the stand-in machine
// clock.json does the same for every process; its offset is added to the switch's, its factor multiplies the switch's.
#pragma once

#include <cstdint>
#include <ctime>

namespace platform {

struct ClockSwitch {
    std::int64_t offset_seconds = 0;
    double wait_factor = 1.0;  // multiplies sleeps, timers and timed waits; a wait that has begun keeps its length
};

void set_clock(const ClockSwitch& clock);

// Seconds since 1970, UTC. This and the two below include the offset.
std::int64_t now_seconds();

// Units of 100 nanoseconds since 1601, UTC.
std::uint64_t now_ticks();

// Microseconds since 1970, for time stamps in logs.
std::int64_t now_microseconds();

// This and local_seconds read the machine's time zone at each call: a notebook travels while the service runs.
//
// False for a time that the C library of Windows has no date for, before 1970 or after 3000; `local` is zeroed then.
bool local_time(std::int64_t seconds, std::tm& local);

// Seconds since 1970 for a local time. Fields out of range carry over (32 January is 1 February), and `local` is
// corrected to that; tm_isdst is looked up, not read. -1 outside the years that the C library knows.
std::int64_t local_seconds(std::tm& local);

// Sleeps for the scaled time.
void sleep_milliseconds(std::uint32_t milliseconds);

// How long a wait of `milliseconds` lasts under the present factors, in microseconds.
std::int64_t scaled_wait(std::uint32_t milliseconds);

}  // namespace platform
