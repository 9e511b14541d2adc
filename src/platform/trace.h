// The trace provider's side of a trace session, one call for each of the system's own. A session is made and ended
// from outside, also while the process runs; the control callback says so, on a thread of the system, and before
// `register_trace` returns when a session is on already.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/guid.h"

namespace platform {

constexpr std::uint32_t kTraceEnable = 4;
constexpr std::uint32_t kTraceDisable = 5;

// `buffer` is handed on to `trace_logger`. The result is a system status, 0 for success.
using TraceControl = std::uint32_t (*)(std::uint32_t request, void* context, void* buffer);

// 0 for success; `registration` is then to be given to `unregister_trace`.
std::uint32_t register_trace(TraceControl control, void* context, const Guid& provider, const Guid& messages,
                             std::uint64_t& registration);
// No callback runs after it returns.
std::uint32_t unregister_trace(std::uint64_t registration);

std::uint64_t trace_logger(void* buffer);
std::uint8_t trace_level(std::uint64_t logger);
std::uint32_t trace_flags(std::uint64_t logger);

// `length` counts the bytes of `text` with its terminator.
void send_trace(std::uint64_t logger, std::uint32_t message_flags, const Guid& messages, std::uint16_t number,
                const char* text, std::size_t length);

}  // namespace platform
