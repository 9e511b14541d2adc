#include "platform/rpc_callback.h"

#include "platform/linux/rpc_call.h"
#include "platform/linux/rpc_frame.h"

namespace platform {
namespace {

using zorvalis::Json;

thread_local const RpcSend* client = nullptr;
thread_local const RpcCallbackObserver* observer = nullptr;

constexpr std::int32_t kNoFunction = -1;

std::string words(const char* text) {
    return text;
}

std::string words(std::int64_t number) {
    return std::to_string(number);
}

// A text in the code page of clients, a number as it is.
Json value(const char* text) {
    return ansi_to_utf8(text);
}

Json value(std::int64_t number) {
    return number;
}

template <class Result>
void call_back(const char* procedure, Result result, std::int32_t function, std::int64_t cookie) {
    if (observer != nullptr) {
        (*observer)({procedure, words(result), function, cookie});
    } else if (client != nullptr) {
        try {
            Json params = {{"result", value(result)}, {"cookie", cookie}};
            if (function != kNoFunction) {
                params["function"] = function;
            }
            (*client)(rpc_notification_line(procedure, params));
        } catch (...) {  // no memory: the caller may hold the job lock, and goes on
        }
    }
}

}  // namespace

RpcCallbackScope::RpcCallbackScope(const RpcSend& send) {
    client = &send;
}

RpcCallbackScope::~RpcCallbackScope() {
    client = nullptr;
}

void callback_test_data(std::int64_t result, std::int64_t cookie) {
    call_back("CallbackTestData", result, kNoFunction, cookie);
}

void callback_text(const char* result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackText", result, function, cookie);
}

void callback_flag(std::uint8_t result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackFlag", std::int64_t{result}, function, cookie);
}

void callback_integer(std::int32_t result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackInteger", std::int64_t{result}, function, cookie);
}

void set_callback_observer(const RpcCallbackObserver* taker) {
    observer = taker;
}

}  // namespace platform
