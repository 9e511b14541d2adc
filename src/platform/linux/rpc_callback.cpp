#include "platform/rpc_callback.h"

#include "platform/linux/rpc_call.h"
#include "platform/linux/rpc_frame.h"
#include "platform/rpc_observer.h"
#include "zorvalis_procedures.h"

namespace platform {
namespace {

using zorvalis::Json;

thread_local const RpcSend* client = nullptr;

// A text in the code page of clients, a number as it is.
Json value(const char* text) {
    return ansi_to_utf8(text);
}

Json value(std::int64_t number) {
    return number;
}

template <class Result>
void send(const char* procedure, Result result, std::int32_t function, std::int64_t cookie) {
    if (client == nullptr) {
        return;
    }
    try {
        Json params = {{"result", value(result)}, {"cookie", cookie}};
        if (function != kNoFunction) {
            params["function"] = function;
        }
        (*client)(rpc_notification_line(procedure, params));
    } catch (...) {  // no memory: the caller may hold the job lock, and goes on
    }
}

template <class Result>
void send(const char* procedure, Result result, std::int64_t cookie) {
    send(procedure, result, kNoFunction, cookie);
}

}  // namespace

RpcCallbackScope::RpcCallbackScope(const RpcSend& send) {
    client = &send;
}

RpcCallbackScope::~RpcCallbackScope() {
    client = nullptr;
}

#define CALL_BACK(name, function_name, member, parameters, ...)     \
    void function_name parameters {                                 \
        call_back(                                                  \
            #name, [&] { send(#name, __VA_ARGS__); }, __VA_ARGS__); \
    }
ZORVALIS_CALLBACKS(CALL_BACK)

}  // namespace platform
