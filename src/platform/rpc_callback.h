// The client's own procedures, which the service calls back while it serves a call of that client: on the thread and
// the connection of that call. On any other thread they do nothing. A callback that fails, say because the client has
// died, is not reported.
#pragma once

#include <cstdint>

namespace platform {

void callback_test_data(std::int64_t result, std::int64_t cookie);
void callback_text(const char* result, std::int32_t function, std::int64_t cookie);  // `result` in the ANSI code page
void callback_flag(std::uint8_t result, std::int32_t function, std::int64_t cookie);
void callback_integer(std::int32_t result, std::int32_t function, std::int64_t cookie);

}  // namespace platform
