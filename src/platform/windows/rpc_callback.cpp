#include "platform/rpc_callback.h"

#include "platform/windows/rpc_call.h"
#include "platform/windows/rpc_guard.h"
#include "zorvalis_rpc.h"

namespace platform {
namespace {

thread_local int servedCalls = 0;
thread_local const RpcCallbackObserver* observer = nullptr;

constexpr std::int32_t kNoFunction = -1;

std::string words(const char* text) {
    return text;
}

std::string words(std::int64_t number) {
    return std::to_string(number);
}

template <class Result, class Stub>
void call_back(const char* procedure, Result result, std::int32_t function, std::int64_t cookie, Stub stub) {
    if (observer != nullptr) {
        (*observer)({procedure, words(result), function, cookie});
    } else if (servedCalls > 0) {
        rpc_guarded(stub);
    }
}

}  // namespace

ServedCall::ServedCall() {
    ++servedCalls;
}

ServedCall::~ServedCall() {
    --servedCalls;
}

void callback_test_data(std::int64_t result, std::int64_t cookie) {
    call_back("CallbackTestData", result, kNoFunction, cookie, [=] { call_CallbackTestData(result, cookie); });
}

void callback_text(const char* result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackText", result, function, cookie, [=] { call_CallbackText(result, function, cookie); });
}

void callback_flag(std::uint8_t result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackFlag", std::int64_t{result}, function, cookie,
              [=] { call_CallbackFlag(result, function, cookie); });
}

void callback_integer(std::int32_t result, std::int32_t function, std::int64_t cookie) {
    call_back("CallbackInteger", std::int64_t{result}, function, cookie,
              [=] { call_CallbackInteger(result, function, cookie); });
}

void set_callback_observer(const RpcCallbackObserver* taker) {
    observer = taker;
}

}  // namespace platform
