#include "platform/event_subscription.h"

#include <utility>

#include "platform/linux/event_source.h"
#include "platform/stand_in/step_failure.h"

namespace platform {

struct EventSubscription::State {
    std::shared_ptr<EventReceiver> receiver;
};

// There is one class of events, whatever the query calls it.
EventSubscription::EventSubscription(bool enter_com, const wchar_t*, const wchar_t*,
                                     std::shared_ptr<EventReceiver> receiver)
    : state_(new State{std::move(receiver)}) {
    pass_steps(enter_com ? EventStep::enter : EventStep::create_locator, EventStep::start, *this);
    if (status >= 0) {
        const std::uint32_t error = add_event_receiver(state_->receiver);
        status = error == 0 ? 0 : static_cast<std::int32_t>(0x80070000U | error);
    }
}

EventSubscription::~EventSubscription() {
    remove_event_receiver(state_->receiver);
}

}  // namespace platform
