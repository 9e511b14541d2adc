#include "platform/linux/event_source.h"

#include <algorithm>
#include <limits>
#include <mutex>

#include "base/json.h"
#include "platform/linux/line_server.h"
#include "platform/linux/wide.h"
#include "platform/stand_in/events.h"

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

// What is no event, and what a receiver lets out, is nothing to anybody.
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

std::uint32_t add_event_receiver(const std::shared_ptr<EventReceiver>& receiver) {
    const std::lock_guard guard(shared().mutex);
    if (const std::uint32_t error = listen(); error != 0) {
        return error;
    }
    shared().receivers.push_back(receiver);
    return 0;
}

void remove_event_receiver(const std::shared_ptr<EventReceiver>& receiver) {
    const std::lock_guard guard(shared().mutex);
    if (std::erase(shared().receivers, receiver) != 0) {
        shared().server.post([receiver] { guarded([&] { receiver->SetStatus(0); }); });
    }
}

}  // namespace platform
