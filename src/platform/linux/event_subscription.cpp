// Subscriptions to the hardware events of the stand-in machine: lines that any program writes to run/events. The
// process listens from its first subscription on, on a thread that never ends and that calls the receivers. The steps
// of setting up can only fail where a test asks for it (step_failure.h), and at last when the socket cannot be opened.
#include "platform/event_subscription.h"

#include <limits>
#include <mutex>
#include <utility>

#include "base/json.h"
#include "platform/linux/line_server.h"
#include "platform/linux/wide.h"
#include "platform/stand_in/events.h"
#include "platform/stand_in/step_failure.h"

namespace platform {

struct EventObject::State {
    const zorvalis::Json& properties;
};

namespace {

constexpr std::size_t kLongestLine = 4096;

using Receivers = std::vector<std::shared_ptr<EventReceiver>>;

LineLimits limits() {
    LineLimits limits;
    limits.line = kLongestLine;
    return limits;
}

// What subscribers and the server's thread share. Never destroyed, as the thread does not end.
struct Shared {
    std::mutex mutex;
    Receivers receivers;
    LineServer server{limits()};
    bool started = false;
};

Shared& shared() {
    static auto* const state = new Shared;
    return *state;
}

// Runs the action and swallows whatever it throws: a line that is no event, or what a receiver lets out.
template <class Action>
void guarded(Action action) {
    try {
        action();
    } catch (...) {
    }
}

// On the server's thread. There are no answers.
std::optional<std::string> deliver(LineServer::Connection, const std::string& line) {
    Receivers receivers;
    {
        const std::lock_guard guard(shared().mutex);
        receivers = shared().receivers;
    }
    guarded([&] {
        const zorvalis::Json properties = receivers.empty() ? zorvalis::Json() : zorvalis::ParseJson(line);
        EventObject::State state = {properties};
        for (const auto& receiver : receivers) {
            if (properties.is_object()) {
                receiver->Indicate(EventObject(state));
            }
        }
    });
    return "";
}

// With the mutex held. A socket of another machine, or one whose file was taken away, is made anew.
std::uint32_t listen() {
    const std::uint32_t error = shared().server.listens_at(kEventSocket) ? 0 : shared().server.open(kEventSocket);
    if (error != 0 || shared().started) {
        return error;
    }
    const std::uint32_t failure = shared().server.start(deliver);
    shared().started = failure == 0;
    return failure;
}

}  // namespace

bool EventObject::property_names(std::vector<std::wstring>& names) const {
    names.clear();
    for (const auto& property : state_.properties.items()) {
        names.push_back(to_wide(property.key()).value_or(L""));
    }
    return true;
}

bool EventObject::integer(const std::wstring& property, std::int32_t& value) const {
    const auto found = state_.properties.find(to_utf8(property));
    if (found == state_.properties.end() || !found->is_number_integer()) {
        return false;
    }
    using Limits = std::numeric_limits<std::int32_t>;
    const bool large = found->is_number_unsigned() && found->get<std::uint64_t>() > std::uint64_t{Limits::max()};
    const auto number = found->get<std::int64_t>();
    if (large || number < Limits::min()) {
        return false;
    }
    value = static_cast<std::int32_t>(number);
    return true;
}

struct EventSubscription::State {
    std::shared_ptr<EventReceiver> receiver;
};

// The namespace and the query are not looked at: the machine has one class of events.
EventSubscription::EventSubscription(bool enter_com, const wchar_t*, const wchar_t*,
                                     std::shared_ptr<EventReceiver> receiver)
    : state_(new State{std::move(receiver)}) {
    pass_steps(enter_com ? EventStep::enter : EventStep::create_locator, EventStep::start, *this);
    if (status < 0) {
        return;
    }
    const std::lock_guard guard(shared().mutex);
    const std::uint32_t error = listen();
    status = error == 0 ? 0 : static_cast<std::int32_t>(0x80070000U | error);
    if (error == 0) {
        shared().receivers.push_back(state_->receiver);
    }
}

// No event is begun with the receiver any more, though one may still be under way; it hears of the end behind that.
EventSubscription::~EventSubscription() {
    const std::lock_guard guard(shared().mutex);
    if (std::erase(shared().receivers, state_->receiver) != 0) {
        shared().server.post([receiver = state_->receiver] { guarded([&] { receiver->SetStatus(0); }); });
    }
}

}  // namespace platform
