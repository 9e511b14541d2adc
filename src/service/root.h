// Where a thread of the system enters the service: nothing leaves. An error that nobody has caught goes to the event
// log in words, and the process goes on.
#pragma once

#include <exception>

#include "common/log.h"
#include "common/text.h"

namespace zorvalis {

inline void ReportEarlyEnd(const char* name, const std::string& why) noexcept {
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
        ReportEarlyEnd(name, std::string(": ") + error.what());
    } catch (...) {
        ReportEarlyEnd(name, "");
    }
}

}  // namespace zorvalis
