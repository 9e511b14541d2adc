#include "client/device_modes.h"

#include <string>

#include "common/log.h"

namespace zorvalis {

bool BatteryHealth::isSupport() {
    const std::uint8_t supported = zorvWinIoDll.WMICheckBatteryHealthSupport(1);
    LogMessage("BatteryHealth::isSupport: " + std::to_string(int{supported}));
    return supported != 0;
}

std::int32_t BatteryHealth::getBatteryHealth(std::uint8_t flag) {
    if (!isSupport()) {
        return kModeNotSupported;
    }
    const std::int32_t value = zorvWinIoDll.ReadFlagged("WMIGetBatteryHealth", flag);
    LogMessage("BatteryHealth::getBatteryHealth: " + std::to_string(value));
    return value;
}

void BatteryHealth::setBatteryHealth(std::int32_t value, std::uint8_t flag) {
    zorvWinIoDll.WMISetBatteryHealth(value, flag);
    LogMessage("BatteryHealth::setBatteryHealth: " + std::to_string(value));
}

void BatteryHealth::restoreBatteryHealth(std::uint8_t flag) {
    if (isSupport()) {
        const std::int32_t value = zorvWinIoDll.ReadFlagged("WMIGetBatteryHealth", flag);
        zorvWinIoDll.WMISetBatteryHealth(value, flag);
        LogMessage("BatteryHealth::restoreBatteryHealth: " + std::to_string(value));
    }
}

bool QuietFan::isSupport() {
    const std::uint8_t supported = zorvWinIoDll.WMICheckQuietFanSupport(1);
    LogMessage("QuietFan::isSupport: " + std::to_string(int{supported}));
    return supported != 0;
}

std::int32_t QuietFan::getQuietFan(std::uint8_t flag) {
    if (!isSupport()) {
        return kModeNotSupported;
    }
    const std::int32_t value = zorvWinIoDll.ReadFlaggedByte("WMIGetQuietFan", flag);
    LogMessage("QuietFan::getQuietFan : " + std::to_string(value));
    return value;
}

void QuietFan::setQuietFan(bool on, std::uint8_t flag) {
    const std::int32_t result = zorvWinIoDll.WMISetQuietFan(on ? 1 : 0, flag);
    LogMessage("QuietFan::setQuietFan : " + std::to_string(int{on}) + " result: " + std::to_string(result));
}

void QuietFan::restoreQuietFan(std::uint8_t flag) {
    if (isSupport()) {
        const std::uint8_t value = zorvWinIoDll.ReadFlaggedByte("WMIGetQuietFan", flag);
        zorvWinIoDll.WMISetQuietFan(value, flag);
        LogMessage("QuietFan::restoreQuietFan : " + std::to_string(int{value}));
    }
}

}  // namespace zorvalis
