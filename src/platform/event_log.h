// The event log of Windows; eventlog.jsonl on the stand-in machine. An entry carries two texts; its category and event
// identifier are 0. Any thread.
#pragma once

#include <cstdint>

namespace platform {

constexpr std::uint16_t kEventWarning = 2;
constexpr std::uint16_t kEventInformation = 4;

// Registers the source, writes one entry, deregisters. False when the entry is lost. Neither text may be null.
bool report_event(const wchar_t* source, std::uint16_t type, const wchar_t* first, const wchar_t* second);

}  // namespace platform
