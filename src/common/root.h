// Where nothing may leave: at the root of a thread that the system runs, and in loops that outlive what fails in them.
// An error that nobody has caught goes to the event log in words, and the process goes on.
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
    } catch (...) {  // there is no memory for the words
    }
}

template <class Call>
void AtRoot(const char* name, Call call) noexcept {
    try {
        call();
    } catch (const std::exception& error) {
        std::array<char, 200> why{};
        std::snprintf(why.data(), why.size(), ": %s", error.what());
        ReportEarlyEnd(name, why.data());
    } catch (std::uint32_t error) {  // one of the system's
        std::array<char, 20> why{};
        std::snprintf(why.data(), why.size(), ": 0x%08lx", static_cast<unsigned long>(error));
        ReportEarlyEnd(name, why.data());
    } catch (...) {
        ReportEarlyEnd(name, "");
    }
}

}  // namespace zorvalis
