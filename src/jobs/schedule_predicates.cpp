#include "jobs/schedule_predicates.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <optional>

#include "base/number.h"
#include "base/text.h"
#include "collection/zorv_win_io_dll.h"
#include "common/log.h"
#include "common/registry.h"
#include "common/time.h"
#include "jobs/ruling_settings.h"
#include "platform/clock.h"

namespace zorvalis {
namespace {

std::wstring ReadProductValue(const wchar_t* name) {
    return ReadRegString(kLocalMachine, kProductKey, name);
}

bool FindSetting(const char* key, std::string& text) {
    return FindSettingText(RulingSettings()->tree, key, text);
}

std::string AgeText(std::uint64_t seconds) {
    return std::to_string(seconds) + "(" + std::to_string(seconds / 86400) + "days " +
           std::to_string(seconds / 3600 % 24) + ":" + std::to_string(seconds / 60 % 60) + ":" +
           std::to_string(seconds % 60) + ")";
}

std::optional<std::uint64_t> LoggedActivation() {
    ZorvWinIoDll zorvWinIoDll;
    const std::string text = ActivationText(zorvWinIoDll);
    if (!HoldsActivation(text)) {
        LogMessage("[Utility]  Get activation time from GPNV fail.\n");
        return std::nullopt;
    }
    LogMessage("[Utility]  Get activation time from GPNV : " + text);
    LogMessage("[Utility]  regActivatedTimeString : " + text);
    return ActivationTicks(text);
}

std::optional<std::uint64_t> LoggedManufacture() {
    const std::string date = NarrowBytes(getManufacturingDate());
    if (date.empty()) {
        return std::nullopt;
    }
    LogMessage("[Utility]  manufacturingDateString : " + date);
    return ManufacturingTicks(date);
}

void WriteLastDojobTime(std::int64_t midnight) {
    WriteRegString(kLocalMachine, kProductKey, L"lastDojobTime", std::to_wstring(midnight));
}

}  // namespace

std::string ActivationText(ZorvWinIoDll& library) {
    std::array<char, kTextCapacity + 1> text{};
    library.GPNV_Get_ActivatedTime(text.data());
    return text.data();
}

std::wstring ChassisText(ZorvWinIoDll& library) {
    WideBuffer text{};
    library.WMIGetSystemChassisTypes(text.data(), 1);
    return WideText(text);
}

ManufacturingDate StoredManufacturingDate() {
    const std::wstring factory = ReadRegString(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate");
    const ManufacturingDate date = ChooseDate(factory, ERROR_READREG);
    return date.source == DateSource::none ? ChooseDate(factory, ReadProductValue(L"FakeManufacturingDate")) : date;
}

double AgeInSeconds(const std::wstring& date) {
    const Day day = DayOf(date);
    std::tm local{};
    local.tm_year = WrapSubtract32(day.year, 1900);
    local.tm_mon = WrapSubtract32(day.month, 1);
    local.tm_mday = day.day;
    const std::int64_t now = platform::now_seconds();
    return AgeInSeconds(day, platform::local_seconds(local), now);
}

std::int64_t MidnightBefore(std::int64_t seconds) {
    std::tm local{};
    if (!platform::local_time(seconds, local)) {
        LogMessage("Invalid argument to _localtime64_s.");
    }
    local.tm_sec = 0;
    local.tm_min = 0;
    local.tm_hour = 0;
    return platform::local_seconds(local);  // midnight may lie on the other side of a clock change
}

bool isImageStateComplete() {
    LogMessage("[isImageStateComplete] start");
    const std::wstring state = ReadRegString(kLocalMachine, kSetupStateKey, L"ImageState");
    const ImageState verdict = ImageStateOf(state);
    LogMessage(verdict == ImageState::missing    ? "[isImageStateComplete] REG_IMAGE_STATE is NULL"
               : verdict == ImageState::complete ? "[isImageStateComplete] REG_IMAGE_STATE == IMAGE_STATE_COMPLETE"
                                                 : "[isImageStateComplete] REG_IMAGE_STATE != IMAGE_STATE_COMPLETE");
    return verdict == ImageState::complete;
}

std::wstring getManufacturingDate() {
    const ManufacturingDate stored = StoredManufacturingDate();
    if (stored.source != DateSource::none) {
        return stored.text;
    }
    writeFakeManufacturingDate();
    const std::wstring written = ReadProductValue(L"FakeManufacturingDate");
    return written != ERROR_READREG ? written : L"";
}

void writeFakeManufacturingDate() {
    const std::string today = TodayDateString();
    WriteRegString(kLocalMachine, kProductKey, L"FakeManufacturingDate", WidenBytes(today));
    LogMessage("[Utility] write fake date : " + today);
}

bool isReadyToDoJobByManufacturingDate() {
    if (!isImageStateComplete()) {
        return false;
    }
    const std::wstring date = getManufacturingDate();
    if (!HasThreeFields(date)) {
        writeFakeManufacturingDate();
        return false;
    }
    const double difference = AgeInSeconds(date);
    const bool ready = IsOlderThanAWeek(difference);
    std::array<char, 400> text{};
    std::snprintf(text.data(), text.size(), "%f", difference);
    LogMessage(std::string("diff time : ") + text.data() +
               (ready ? ", isReadyToDoJobByManufacturingDate = true" : ", isReadyToDoJobByManufacturingDate = false"));
    return ready;
}

bool isMainSwitchEnable() {
    const std::wstring value = ReadProductValue(L"MainSwitch");
    LogMessage("[Utility] isMainSwitchEnable : " + NarrowBytes(value));
    if (value == ERROR_READREG) {
        WriteRegString(kLocalMachine, kProductKey, L"MainSwitch", L"1");
    }
    return IsOn(MainSwitchOf(value));
}

bool isOverTotalCollectTime() {
    std::string text;
    if (!FindSetting(kMonthsSetting, text)) {
        LogMessage("[Utility] cannot get totalCollectTime from setting file.\n");
        return true;
    }
    const std::int32_t months = ParseInt32(text);
    LogMessage("[Utility]  totalCollectTime from setting file : " + std::to_string(months) + "months.\n");
    std::optional<std::uint64_t> start = LoggedActivation();
    if (!start) {
        start = LoggedManufacture();
    }
    const CollectPeriod period = PeriodAt(start, months, platform::now_ticks());
    if (start) {
        LogMessage("[Utility]  diff : " + AgeText(period.age));
    }
    LogMessage(period.IsOver() ? "[Utility]  isOverTotalCollectTimeStatus = true.\n"
                               : "[Utility]  isOverTotalCollectTimeStatus = false.\n");
    return period.IsOver();
}

bool isSpecificDojobDay() {
    std::string text;
    if (!FindSetting(kPauseSetting, text)) {
        LogMessage("[Utility] intervalTimer : NULL");
        return false;
    }
    LogMessage("[Utility] specificTime : " + text);
    const std::int32_t pauseDays = ParseInt32(text);
    const std::int64_t regLastDoTime = LastDojobTime(ReadProductValue(L"lastDojobTime"));
    const std::int64_t currentTimestamp = platform::now_seconds();
    const std::int64_t midnightTimeStamp = MidnightBefore(currentTimestamp);
    const DojobDay day = DojobDayAt(pauseDays, regLastDoTime, currentTimestamp);
    if (day.state == DojobState::first) {
        LogMessage("[Utility] never set lastDojobTime");
        WriteLastDojobTime(midnightTimeStamp);
        return true;
    }
    LogMessage("[Utility] regLastDoTime : " + std::to_string(regLastDoTime));
    LogMessage("[Utility] settingDuringTime : " + std::to_string(day.pause));
    LogMessage("[Utility] currentTimestamp : " + std::to_string(currentTimestamp));
    LogMessage("[Utility] midnightTimeStamp : " + std::to_string(midnightTimeStamp));
    LogMessage("[Utility] regLastDoTime + settingDuringTime : " + std::to_string(day.gapEnd));
    if (day.state == DojobState::begins) {
        // Kept: the words leave out the day that the rule adds.
        LogMessage("[Utility] regLastDoTime + settingDuringTime <= currentTimestamp : ");
        WriteLastDojobTime(midnightTimeStamp);
    } else if (day.state == DojobState::runs) {
        LogMessage("[Utility] currentTimestamp - regLastDoTime < 86400");
    }
    return day.IsToday();
}

}  // namespace zorvalis
