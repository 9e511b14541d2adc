// Marks the calling thread as one that serves a client's call: only then is there somebody to call back.
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
