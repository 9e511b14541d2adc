// What the system calls for each hardware event, on threads of its own. It only leaves the event's number in the
// registry; whether anything is collected is decided by the thread that waits for that.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/event_subscription.h"

namespace zorvalis {

inline constexpr wchar_t kPendingEvent[] = L"WMIEVENTID";  // 0 for none

class EventSink : public platform::EventReceiver {
public:
    EventSink(std::int32_t first, std::int32_t second) : first_(first), second_(second) {}

    void Indicate(const platform::EventObject& object) override;
    void SetStatus(std::int32_t flags) override;

private:
    std::atomic<std::int32_t> last_{0};  // of those that were accepted
    const std::int32_t first_;
    const std::int32_t second_;
};

}  // namespace zorvalis
