// By ReportEvent, with the source registered for each entry.
#include "platform/event_log.h"

#include "platform/windows/handles.h"

namespace platform {

bool report_event(const wchar_t* source, std::uint16_t type, const wchar_t* first, const wchar_t* second) {
    const OwnedEventSource log(::RegisterEventSourceW(nullptr, source));
    if (log == nullptr) {
        return false;
    }
    const wchar_t* strings[] = {first, second};
    return ::ReportEventW(log.get(), type, 0, 0, nullptr, 2, 0, strings, nullptr) != FALSE;
}

}  // namespace platform
