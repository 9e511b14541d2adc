// An event provider of this process: texts with a level, which Windows hands to whoever collects events of this
// provider; provider.jsonl on the stand-in machine. Any thread.
#pragma once

#include <cstdint>

#include "platform/guid.h"

namespace platform {

// 0, or a Windows error number. After success `registration` is not 0 and belongs to the caller, who hands it to
// unregister_event_provider.
std::uint32_t register_event_provider(const Guid& provider, std::uint64_t& registration);
void unregister_event_provider(std::uint64_t registration);

// A text that cannot be written is lost, and the caller is not told.
void write_event_text(std::uint64_t registration, std::uint8_t level, std::uint64_t keyword, const wchar_t* text);

}  // namespace platform
