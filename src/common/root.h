// Where an exception must not pass: at the root of a thread that Windows or a library calls us on, and in a loop that
// is to outlive what fails in it. AtRoot writes the exception to the event log, and the process goes on.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "base/text.h"
#include "common/log.h"

namespace zorvalis {

inline void ReportEarlyEnd(const char* name, const char* why) noexcept {
    try {
        ReportServiceEvent((WidenBytes(name) + L" ended early" + WidenBytes(why)).c_str(), kWarning);
    } catch (...) {  // out of memory: nothing can be reported
    }
}

// Runs `call`. `name` stands at the start of the entry, "<name> ended early: <why>".
template <class Call>
void AtRoot(const char* name, Call call) noexcept {
    try {
        call();
    } catch (const std::exception& error) {
        std::array<char, 200> why{};
        std::snprintf(why.data(), why.size(), ": %s", error.what());
        ReportEarlyEnd(name, why.data());
    } catch (std::uint32_t error) {  // a Windows error number
        std::array<char, 20> why{};
        std::snprintf(why.data(), why.size(), ": 0x%08lx", static_cast<unsigned long>(error));
        ReportEarlyEnd(name, why.data());
    } catch (...) {
        ReportEarlyEnd(name, "");
    }
}

}  // namespace zorvalis
