// A trace provider: one call for each call of Windows; trace.json and trace.log on the stand-in machine. Tools outside
// begin and end a trace session at any time. The control callback hears of it on a thread of Windows (of the stand-in's
// watcher), and inside `register_trace` when a session is on already.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/guid.h"

namespace platform {

constexpr std::uint32_t kTraceEnable = 4;
constexpr std::uint32_t kTraceDisable = 5;

// `request` is one of the two above; `buffer` is for `trace_logger`. The result is a Windows error number, 0 for
// success.
using TraceControl = std::uint32_t (*)(std::uint32_t request, void* context, void* buffer);

// 0, or a Windows error number. After success the caller hands `registration` to `unregister_trace`.
std::uint32_t register_trace(TraceControl control, void* context, const Guid& provider, const Guid& messages,
                             std::uint64_t& registration);
// No control callback runs after this has returned.
std::uint32_t unregister_trace(std::uint64_t registration);

// The session that the control callback was called for, and the level and flags that it asks for.
std::uint64_t trace_logger(void* buffer);
std::uint8_t trace_level(std::uint64_t logger);
std::uint32_t trace_flags(std::uint64_t logger);

// Sends one message to the session `logger`. `number` tells the messages of the class `messages` apart; `length` counts
// the bytes of `text`, its terminator included. A message that cannot be sent is lost. Any thread.
void send_trace(std::uint64_t logger, std::uint32_t message_flags, const Guid& messages, std::uint16_t number,
                const char* text, std::size_t length);

}  // namespace platform
