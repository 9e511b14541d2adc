// What the stand-in of the service manager sends beside a control, and the hooks in the service unwrap: Wine's pipe has
// no room for an event type. The event data follows; a size of 0 is a null.
#pragma once

#include <cstdint>

namespace doubles {

struct ControlData {
    static constexpr std::uint32_t kMark = 0x30545645;

    std::uint32_t mark = kMark;
    std::uint32_t event_type = 0;
    std::uint32_t size = 0;
};

// A control that the doubles answer and the service never hears of. Its event data is a text: "fire N" lets the Nth of
// the held timers (from 0) go off, "wake" ends a held sleep, "indicate\n" and objects, or "status N", are for the event
// subscription.
constexpr std::uint32_t kRequest = 0x5A000000;

// Names of tasks that the scheduler has.
constexpr wchar_t kTask[] = L"Zorvalis_754F3273-0563-4F20-B12F-826510B07474";
constexpr wchar_t kLongerTask[] = L"Zorvalis_754F3273-0563-4F20-B12F-826510B074742";

}  // namespace doubles
