// Turns two of the firmware's hardware events into collect jobs. A subscription lasts for one wake-up: any change of
// the product's key ends it, and it is set up anew. All of it runs on one thread, the caller's.
#pragma once

#include <cstdint>
#include <memory>

#include "events/event_sink.h"

namespace zorvalis {

class WmiEventManager {
public:
    // Cycle after cycle, until the third that cannot be set up since the first call: then for good.
    void initWmiEventReceiver(bool initCom);

    // One cycle of subscribing, waiting and unsubscribing; with `initCom` it enters and leaves COM itself. 1 when a
    // step of the set-up failed, else 0.
    int setWmiEventReceiver(bool initCom);

    // Blocks for one change of the key and handles it.
    void waitForWmiEvent(EventSink& sink);
};

}  // namespace zorvalis
