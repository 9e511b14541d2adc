// The client's own procedures, which the service calls back while it serves a call of that client: on the thread and
// the connection of that call. On any other thread they do nothing. A callback that fails, say because the client has
// died, is not reported.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace platform {

void callback_test_data(std::int64_t result, std::int64_t cookie);
void callback_text(const char* result, std::int32_t function, std::int64_t cookie);  // `result` in the ANSI code page
void callback_flag(std::uint8_t result, std::int32_t function, std::int64_t cookie);
void callback_integer(std::int32_t result, std::int32_t function, std::int64_t cookie);

// For tests: one callback as text. `procedure` is "CallbackText" and the like; `function` is -1 for CallbackTestData,
// which carries no function number.
struct RpcCallback {
    std::string procedure;
    std::string result;
    std::int32_t function;
    std::int64_t cookie;
};

// For tests: the calling thread's callbacks go to `observer` instead of a client, until it is set to null. The observer
// stays the caller's: the thread keeps only the pointer, because a thread of the Windows RPC runtime ends after its
// thread_local memory is freed, so that no destructor may run there.
using RpcCallbackObserver = std::function<void(const RpcCallback&)>;
void set_callback_observer(const RpcCallbackObserver* observer);

}  // namespace platform
