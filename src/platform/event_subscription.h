// A subscription to the events of a class that the firmware reports: set up as a whole, cancelled and released at its
// end. It belongs to one thread; the receiver is called on threads of the system, also shortly after the end.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform {

// One event, for the length of a call.
class EventObject {
public:
    struct State;
    explicit EventObject(State& state) : state_(state) {}

    // False when they cannot be had.
    bool property_names(std::vector<std::wstring>& names) const;
    bool integer(const std::wstring& property, std::int32_t& value) const;

private:
    State& state_;
};

class EventReceiver {
public:
    virtual ~EventReceiver() = default;
    virtual void Indicate(const EventObject& object) = 0;
    virtual void SetStatus(std::int32_t flags) = 0;
};

// In their order.
enum class EventStep {
    enter,  // COM, in the multithreaded apartment
    create_locator,
    connect,
    set_blanket,
    start,  // a failure to make the stub through which the receiver is called shows here
};

class EventSubscription {
public:
    // Subscribes, up to the first step that fails. Without `enter_com` the thread is in COM already.
    EventSubscription(bool enter_com, const wchar_t* name_space, const wchar_t* query,
                      std::shared_ptr<EventReceiver> receiver);
    ~EventSubscription();
    EventSubscription(const EventSubscription&) = delete;
    EventSubscription& operator=(const EventSubscription&) = delete;

    // The last step that was done, or the one that failed, and its status: negative for a failure, in the numbers of
    // Windows.
    EventStep step = EventStep::enter;
    std::int32_t status = 0;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace platform
