// The two modes of the machine that a user sets: how far the battery is charged, and the quiet fan. A mode lives in the
// firmware alone. An object holds the hardware library open, for one job or one getter; the job lock keeps them apart.
#pragma once

#include <cstdint>

#include "collection/zorv_win_io_dll.h"

namespace zorvalis {

constexpr std::int32_t kModeNotSupported = -1;

class BatteryHealth {
public:
    bool isSupport();

    // 100, 80 or 60: charged up to that; kModeNotSupported. The flag goes to the firmware as it stands.
    std::int32_t getBatteryHealth(std::uint8_t flag);

    // Also on a machine that does not support it; nobody hears whether it was done.
    void setBatteryHealth(std::int32_t value, std::uint8_t flag);

    // Writes again what the firmware holds now. Nobody calls it yet.
    void restoreBatteryHealth(std::uint8_t flag);

private:
    ZorvWinIoDll zorvWinIoDll;
};

class QuietFan {
public:
    bool isSupport();

    // 1, 0 or kModeNotSupported.
    std::int32_t getQuietFan(std::uint8_t flag);
    void setQuietFan(bool on, std::uint8_t flag);
    void restoreQuietFan(std::uint8_t flag);

private:
    ZorvWinIoDll zorvWinIoDll;
};

}  // namespace zorvalis
