// The event provider of this process: texts at a level, for whoever collects the machine's events.
#pragma once

#include <cstdint>

#include "platform/guid.h"

namespace platform {

// The result is a system status, 0 for success; `registration` is then not 0 and is to be given back.
std::uint32_t register_event_provider(const Guid& provider, std::uint64_t& registration);
void unregister_event_provider(std::uint64_t registration);

void write_event_text(std::uint64_t registration, std::uint8_t level, std::uint64_t keyword, const wchar_t* text);

}  // namespace platform
