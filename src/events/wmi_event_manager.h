// Turns two of the firmware's hardware events into collect jobs. A subscription lasts for one wake-up: any change under
// the product's registry key ends it, and a new one is made; an event in between is lost. All of this runs on the
// caller's thread, a pool thread of the service.
#pragma once

#include <cstdint>
#include <memory>

#include "events/event_sink.h"

namespace zorvalis {

class WmiEventManager {
public:
    // Runs cycle after cycle. Returns, for good, when the set-up of a cycle has failed for the third time since the
    // call; after the first failure it waits one minute, after the second two. `initCom` goes to each cycle.
    void initWmiEventReceiver(bool initCom);

    // One cycle: subscribe, wait, unsubscribe. With `initCom` it enters and leaves COM; without, the thread must be in
    // COM already. Returns 1 when a step of the set-up failed, else 0.
    int setWmiEventReceiver(bool initCom);

    // Blocks until anything under the product's key changes, and collects for the pending event if there is one.
    void waitForWmiEvent(EventSink& sink);
};

}  // namespace zorvalis
