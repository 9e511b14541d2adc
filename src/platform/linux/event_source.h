// The hardware events of the stand-in machine: lines that any program writes to run/events. The process listens from
// its first subscription on, on a thread that never ends and that calls the receivers. Any thread.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/event_subscription.h"

namespace platform {

// From now on events come to the receiver. 0, or the system's error when the process cannot listen.
std::uint32_t add_event_receiver(const std::shared_ptr<EventReceiver>& receiver);

// No event is begun with it any more, though one may still be under way; a receiver that was there hears of its end
// behind that.
void remove_event_receiver(const std::shared_ptr<EventReceiver>& receiver);

}  // namespace platform
