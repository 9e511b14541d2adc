#include "platform/rpc_callback.h"

#include <new>
#include <utility>

#include "platform/linux/rpc_call.h"
#include "platform/linux/rpc_frame.h"

namespace platform {
namespace {

using zorvalis::Json;

thread_local const RpcSend* client = nullptr;
thread_local std::function<void(const RpcCallback&)> observe;

constexpr std::int32_t kNoFunction = -1;

void call_back(const char* procedure, const std::string& words, const Json& result, std::int32_t function,
               std::int64_t cookie) {
    if (observe) {
        observe({procedure, words, function, cookie});
    } else if (client != nullptr) {
        Json params = {{"result", result}, {"cookie", cookie}};
        if (function != kNoFunction) {
            params["function"] = function;
        }
        (*client)(rpc_notification_line(procedure, params));
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
    call_back("CallbackTestData", std::to_string(result), result, kNoFunction, cookie);
}

void callback_text(const char* result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackText", result, ansi_to_utf8(result), function, cookie);
}

void callback_flag(std::uint8_t result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackFlag", std::to_string(result), result, function, cookie);
}

void callback_integer(std::int32_t result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackInteger", std::to_string(result), result, function, cookie);
}

void set_callback_observer(std::function<void(const RpcCallback&)> observer) {
    observe = std::move(observer);
}

}  // namespace platform
