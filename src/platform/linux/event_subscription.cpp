// A subscription is a receiver in the list of event_source.h. The steps can only fail where a test asks for it
// (step_failure.h), and at last when the socket cannot be opened.
#include "platform/event_subscription.h"

#include <utility>

#include "platform/linux/event_source.h"
#include "platform/stand_in/step_failure.h"

namespace platform {

struct EventSubscription::State {
    std::shared_ptr<EventReceiver> receiver;
};

// The namespace and the query are not looked at: the machine has one class of events.
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
