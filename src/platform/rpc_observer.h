// The way of a callback on both sides: to the test's observer, or else to the client.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>

namespace platform {

// One callback in words, for tests: procedure "CallbackText", its result as text, function number -1 for
// CallbackTestData, which has none.
struct RpcCallback {
    std::string procedure;
    std::string result;
    std::int32_t function;
    std::int64_t cookie;
};

// For tests: takes the callbacks of the calling thread in the place of a client, until it is given none. It is the
// caller's: a thread keeps nothing that would have to be destroyed at its end, when the RPC runtime's threads have lost
// their memory already.
using RpcCallbackObserver = std::function<void(const RpcCallback&)>;
void set_callback_observer(const RpcCallbackObserver* observer);

// That of the calling thread; null outside of tests.
const RpcCallbackObserver* callback_observer();

constexpr std::int32_t kNoFunction = -1;

// `send` makes the callback; the rest are its arguments.
template <class Send, class Result>
void call_back(const char* procedure, Send send, Result result, std::int32_t function, std::int64_t cookie) {
    if (const RpcCallbackObserver* const observer = callback_observer(); observer == nullptr) {
        send();
    } else if constexpr (std::is_integral_v<Result>) {
        (*observer)({procedure, std::to_string(result), function, cookie});
    } else {
        (*observer)({procedure, result, function, cookie});
    }
}

template <class Send, class Result>
void call_back(const char* procedure, Send send, Result result, std::int64_t cookie) {
    call_back(procedure, send, result, kNoFunction, cookie);
}

}  // namespace platform
