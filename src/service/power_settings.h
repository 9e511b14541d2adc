// The power settings that the service listens to, under Windows' own names and numbers. A change carries one number:
// lid 0 closed, 1 open; power source 0 mains, 1 battery, 2 a short-term source; display 0 off, 1 on, 2 dimmed.
#pragma once

#include "platform/guid.h"

namespace zorvalis {

inline constexpr platform::Guid GUID_LIDSWITCH_STATE_CHANGE = {
    0xBA3E0F4D, 0xB817, 0x4094, {0xA2, 0xD1, 0xD5, 0x63, 0x79, 0xE6, 0xA0, 0xF3}};
inline constexpr platform::Guid GUID_ACDC_POWER_SOURCE = {
    0x5D3E9A59, 0xE9D5, 0x4B00, {0xA6, 0xBD, 0xFF, 0x34, 0xFF, 0x51, 0x65, 0x48}};
inline constexpr platform::Guid GUID_CONSOLE_DISPLAY_STATE = {
    0x6FE69556, 0x704A, 0x47A0, {0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47}};

}  // namespace zorvalis
