// How the stand-in machine's service is driven from outside: who starts it as a service names it in the environment,
// its controls go to a socket, and what it reports is a line of a log. docs/stand-in-machine.md has the lines.
#pragma once

#include <cstdint>

namespace platform {

inline constexpr char kControlSocket[] = "run/control";
inline constexpr char kStatusLog[] = "status.jsonl";
inline constexpr char kRefusedStatusLog[] = "refused-status.jsonl";  // reports that nobody takes
inline constexpr char kServiceVariable[] = "ZORV_SERVICE";  // its name, for the process that is started as a service

// States that the service reports.
constexpr std::uint32_t kServiceStopped = 1;
constexpr std::uint32_t kServiceStartPending = 2;
constexpr std::uint32_t kServiceStopPending = 3;
constexpr std::uint32_t kServiceLastState = 7;

// Controls.
constexpr std::uint32_t kControlPowerEvent = 13;
constexpr std::uint32_t kPowerSettingChange = 0x8013;  // the event type

}  // namespace platform
