// Lets the clients of this process get callbacks under Wine, until the end of a scope, from a service with the doubles.
#pragma once

#include <windows.h>

#include <rpc.h>

class CallbackEndpoint {
public:
    CallbackEndpoint();
    ~CallbackEndpoint();
    CallbackEndpoint(const CallbackEndpoint&) = delete;
    CallbackEndpoint& operator=(const CallbackEndpoint&) = delete;

private:
    RPC_SERVER_INTERFACE interface_{};
    HANDLE taker_ = nullptr;
};
