// What the product says about itself: trace lines, which go nowhere while no trace session listens, and entries in the
// Windows event log. Any thread may call. A line or entry that cannot be written is lost without a word.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// Types of event log entries, in Windows' numbers.
constexpr std::uint16_t kWarning = 2;
constexpr std::uint16_t kInformation = 4;

// Register and unregister the trace provider of this process. Outside of the two, trace lines are dropped.
void StartTrace();
void StopTrace();

// One trace line. The session adds the time; a prefix in brackets is part of the caller's text.
void LogMessage(std::string text);
void LogMessageW(std::wstring text);

// One entry of the source "Zorvalis" in the event log. Entries are written one at a time; one that waits longer than 10
// seconds for its turn is dropped.
void ReportServiceEvent(const wchar_t* text, std::uint16_t type);

}  // namespace zorvalis
