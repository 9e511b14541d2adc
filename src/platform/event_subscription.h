// A subscription to the events of a class that the firmware reports, one call for each step that the system's
// interfaces have. Every call answers with the system's status: negative for a failure, in the numbers of Windows.
// Whatever exists is released and left with the object: services, locator, apartment, stub, sink, the stub's sink. It
// belongs to one thread; the receiver is called on threads of the system, also shortly after `cancel`.
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

class EventSubscription {
public:
    using Status = std::int32_t;

    EventSubscription();
    ~EventSubscription();
    EventSubscription(const EventSubscription&) = delete;
    EventSubscription& operator=(const EventSubscription&) = delete;

    Status enter();  // COM, in the multithreaded apartment
    Status create_locator();
    Status connect(const wchar_t* name_space);
    Status set_blanket();

    // The stub through which the system calls the receiver. Its own failures show as that of `start`.
    void create_stub(std::shared_ptr<EventReceiver> receiver);
    Status start(const wchar_t* language, const wchar_t* query);
    Status cancel();

private:
    struct State;
    State* state_;
};

}  // namespace platform
