// What WMI (on the stand-in machine, its socket) calls for each hardware event, on a thread of its own. It only
// writes the event's number to the registry; WmiEventManager's thread, which waits there, decides what to collect.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/event_subscription.h"

namespace zorvalis {

// The registry value with the number of the latest event; 0 when none is pending. A second event overwrites the first.
inline constexpr wchar_t kPendingEvent[] = L"WMIEVENTID";

// Passes on the events with the numbers `first` and `second`; others are traced and dropped.
class EventSink : public platform::EventReceiver {
public:
    EventSink(std::int32_t first, std::int32_t second) : first_(first), second_(second) {}

    void Indicate(const platform::EventObject& object) override;
    void SetStatus(std::int32_t flags) override;

private:
    std::atomic<std::int32_t> last_{0};  // the last event that was passed on. Kept: nothing reads it
    const std::int32_t first_;
    const std::int32_t second_;
};

}  // namespace zorvalis
