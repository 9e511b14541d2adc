// What the system says about itself: trace lines, which cost next to nothing while no session listens, and entries in
// the event log. Nothing here fails outward; any thread may call.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

constexpr std::uint16_t kWarning = 2;
constexpr std::uint16_t kInformation = 4;

// Registers and unregisters the trace provider of this process.
void StartTrace();
void StopTrace();

// One trace line. The prefix in brackets that most texts carry is part of the text.
void LogMessage(std::string text);
void LogMessageW(std::wstring text);

// One entry of the source "Zorvalis". Entries are written one at a time; one that waits longer than 10 seconds for its
// turn is dropped.
void ReportServiceEvent(const wchar_t* text, std::uint16_t type);

}  // namespace zorvalis
