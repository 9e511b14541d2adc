// The firmware's class of events in ROOT\WMI on a machine that has none, and a provider in this process that raises its
// events: Windows' own WMI then carries them to whoever has subscribed. The class goes with the object.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "step.h"

namespace zorvalis::acceptance {

// Says Impossible where this machine has the maker's own class; takes away one that the kit has left.
void NeedNoClass(Findings& findings);

class WmiStandIn {
public:
    // Says Impossible where this machine has the maker's own class, or its WMI takes none.
    explicit WmiStandIn(Findings& findings);
    ~WmiStandIn();
    WmiStandIn(const WmiStandIn&) = delete;
    WmiStandIn& operator=(const WmiStandIn&) = delete;

    // Raises one event for each number, all in one call. Beside EventID, of 32 bits, an event has Small (8 bits, 7),
    // Large (64 bits, 2^40), Word ("word") and Nothing (a number without a value). Returns an HRESULT.
    std::int32_t Raise(const std::vector<std::int32_t>& numbers);

    // Takes away what a kit that was ended has left.
    static void Remove();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zorvalis::acceptance
