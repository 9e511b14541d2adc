// The two modes of the machine that a user sets: how far the battery is charged, and the quiet fan. Only the firmware
// keeps a mode; the service has no copy. An object keeps the hardware library loaded, so it is made for one job or one
// getter only. Callers hold the job lock. `flag` goes to the library as it is; every caller passes 1.
#pragma once

#include <cstdint>

#include "collection/zorv_win_io_dll.h"

namespace zorvalis {

constexpr std::int32_t kModeNotSupported = -1;

class BatteryHealth {
public:
    bool isSupport();

    // The percentage up to which the battery is charged, 100, 80 or 60; kModeNotSupported without asking further.
    std::int32_t getBatteryHealth(std::uint8_t flag);

    // Kept: also on a machine that does not support it; whether it worked is not looked at.
    void setBatteryHealth(std::int32_t value, std::uint8_t flag);

    // Reads the present mode and writes it again. Kept: nothing calls it.
    void restoreBatteryHealth(std::uint8_t flag);

private:
    ZorvWinIoDll zorvWinIoDll;
};

class QuietFan {
public:
    bool isSupport();

    // 1 for on, 0 for off, or kModeNotSupported. The others are as above.
    std::int32_t getQuietFan(std::uint8_t flag);
    void setQuietFan(bool on, std::uint8_t flag);
    void restoreQuietFan(std::uint8_t flag);

private:
    ZorvWinIoDll zorvWinIoDll;
};

}  // namespace zorvalis
