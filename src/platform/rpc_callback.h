// The procedures of the client that the service calls back while a call of that client runs, on the thread and the
// connection of the call. Nobody hears of one that fails, as when the client has died; outside of a call nothing
// happens.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace platform {

void callback_test_data(std::int64_t result, std::int64_t cookie);
void callback_text(const char* result, std::int32_t function, std::int64_t cookie);  // in the ANSI code page
void callback_flag(std::uint8_t result, std::int32_t function, std::int64_t cookie);
void callback_integer(std::int32_t result, std::int32_t function, std::int64_t cookie);

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

}  // namespace platform
