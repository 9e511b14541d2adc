// A subscription to the events that the firmware reports through WMI, or that lines in the stand-in machine's
// run/events report. The constructor sets it up, the destructor cancels it. One thread makes and ends it; the receiver
// is called on threads of WMI (of the stand-in's socket), and may still be called shortly after the destructor.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform {

// One event. Valid only inside the Indicate that was given it.
class EventObject {
public:
    struct State;
    explicit EventObject(State& state) : state_(state) {}

    // The names of all properties of the event; false when Windows cannot list them.
    bool property_names(std::vector<std::wstring>& names) const;
    // False when the property is missing or is no number of 32 bits; `value` is unchanged then.
    bool integer(const std::wstring& property, std::int32_t& value) const;

private:
    State& state_;
};

// What these throw is swallowed.
class EventReceiver {
public:
    virtual ~EventReceiver() = default;
    virtual void Indicate(const EventObject& object) = 0;
    // Progress or end of the subscription; `flags` are WMI's.
    virtual void SetStatus(std::int32_t flags) = 0;
};

// The steps of setting up, in their order.
enum class EventStep {
    enter,  // the calling thread enters COM's multithreaded apartment
    create_locator,
    connect,
    set_blanket,
    start,  // also fails when the stub, through which WMI would call the receiver, could not be made
};

class EventSubscription {
public:
    // Makes the steps up to the first that fails. `enter_com` is false on a thread that is in COM already.
    EventSubscription(bool enter_com, const wchar_t* name_space, const wchar_t* query,
                      std::shared_ptr<EventReceiver> receiver);
    ~EventSubscription();
    EventSubscription(const EventSubscription&) = delete;
    EventSubscription& operator=(const EventSubscription&) = delete;

    // The last step made, or the one that failed, and its HRESULT: negative for a failure.
    EventStep step = EventStep::enter;
    std::int32_t status = 0;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace platform
