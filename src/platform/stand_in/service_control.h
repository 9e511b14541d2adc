// How a program drives the service of a stand-in machine: it starts the executable with the service's name in the
// environment, sends controls to a socket, and reads the reported states in a log. docs/stand-in-machine.md has the
// lines.
#pragma once

#include <cstdint>

namespace platform {

inline constexpr char kControlSocket[] = "run/control";
inline constexpr char kStatusLog[] = "status.jsonl";
inline constexpr char kRefusedStatusLog[] = "refused-status.jsonl";  // reports after the stop or without a handle
inline constexpr char kServiceVariable[] = "ZORV_SERVICE";  // set for a process that is started as this service

// States that the service reports.
constexpr std::uint32_t kServiceStopped = 1;
constexpr std::uint32_t kServiceStartPending = 2;
constexpr std::uint32_t kServiceStopPending = 3;
constexpr std::uint32_t kServiceLastState = 7;

// Controls.
constexpr std::uint32_t kControlPowerEvent = 13;
constexpr std::uint32_t kPowerSettingChange = 0x8013;  // the event type

}  // namespace platform
