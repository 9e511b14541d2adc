// Marks the calling thread, while the object lives, as one that serves a client's call. Callbacks do nothing on any
// other thread (platform/rpc_callback.h).
#pragma once

namespace platform {

class ServedCall {
public:
    ServedCall();
    ~ServedCall();
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;
};

}  // namespace platform
