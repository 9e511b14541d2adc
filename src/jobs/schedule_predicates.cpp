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

constexpr std::int32_t kDay = 86400;
constexpr std::int32_t kMonth = 2592000;
constexpr double kWeek = 604800.0;
constexpr std::uint64_t kEightHours = 288000000000;  // in units of 100 nanoseconds

bool HasThreeFields(const std::wstring& date) {
    return SplitString(date, L'/').size() == 3;
}

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

// Whether `start` lies less than `limit` seconds back. Unsigned throughout: a start in the future is very long ago.
bool IsWithin(std::uint64_t start, std::uint32_t limit) {
    const std::uint64_t difference = platform::now_ticks() - start;
    const std::uint64_t age = difference / kTicksPerSecond;
    LogMessage("[Utility]  diff : " + AgeText(age));
    return difference != 0 && age < limit;
}

std::int64_t LocalMidnight(std::int64_t seconds) {
    std::tm local{};
    if (!platform::local_time(seconds, local)) {
        LogMessage("Invalid argument to _localtime64_s.");
    }
    local.tm_sec = 0;
    local.tm_min = 0;
    local.tm_hour = 0;
    return platform::local_seconds(local);  // midnight may lie on the other side of a clock change
}

// From local midnight of a date until now.
double SecondsSince(std::int32_t year, std::int32_t month, std::int32_t day) {
    std::tm date{};
    date.tm_year = WrapSubtract32(year, 1900);
    date.tm_mon = WrapSubtract32(month, 1);
    date.tm_mday = day;
    const auto now = static_cast<double>(platform::now_seconds());
    const std::int64_t midnight = platform::local_seconds(date);
    if (midnight == -1) {
        // Outside the C library's years, which differ by system; the mean year tells past from future.
        return now - (static_cast<double>(year) - 1970) * 31556952;
    }
    return now - static_cast<double>(midnight);
}

void WriteLastDojobTime(std::int64_t midnight) {
    WriteRegString(kLocalMachine, kProductKey, L"lastDojobTime", std::to_wstring(midnight));
}

}  // namespace

// The firmware holds it in local time of UTC+8, brought to UTC.
std::optional<std::uint64_t> ActivationTime() {
    ZorvWinIoDll zorvWinIoDll;
    std::array<char, kTextCapacity + 1> text{};
    zorvWinIoDll.GPNV_Get_ActivatedTime(text.data());
    if (static_cast<unsigned char>(text[0]) == 255) {
        LogMessage("[Utility]  Get activation time from GPNV fail.\n");
        return std::nullopt;
    }
    LogMessage(std::string("[Utility]  Get activation time from GPNV : ") + text.data());
    SystemTime time;
    std::sscanf(text.data(), "%hu-%hu-%hu %hu:%hu:%hu", &time.year, &time.month, &time.day, &time.hour, &time.minute,
                &time.second);
    LogMessage(std::string("[Utility]  regActivatedTimeString : ") + text.data());
    std::uint64_t ticks = 0;
    if (!SystemTimeToTicks(time, ticks)) {
        return std::nullopt;
    }
    return ticks - kEightHours;
}

// The manufacturing date as it stands, without a shift.
std::optional<std::uint64_t> ManufacturingTime(const std::wstring& date) {
    const std::string text = NarrowBytes(date);
    if (text.empty()) {
        return std::nullopt;
    }
    SystemTime time;
    std::sscanf(text.c_str(), "%hu/%hu/%hu", &time.year, &time.month, &time.day);
    LogMessage("[Utility]  manufacturingDateString : " + text);
    std::uint64_t ticks = 0;
    if (!SystemTimeToTicks(time, ticks)) {
        return std::nullopt;
    }
    return ticks;
}

std::uint32_t CollectSeconds(std::int32_t months) {
    return static_cast<std::uint32_t>(WrapMultiply(months, kMonth));  // compared as unsigned
}

bool MainSwitchIsOn(const std::wstring& value) {
    return value == L"1" || value == ERROR_READREG;
}

std::wstring StoredManufacturingDate() {
    std::wstring factory = ReadRegString(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate");
    if (factory != ERROR_READREG && HasThreeFields(factory)) {
        return factory;
    }
    std::wstring fake = ReadProductValue(L"FakeManufacturingDate");
    return fake != ERROR_READREG && HasThreeFields(fake) ? fake : L"";
}

double AgeInSeconds(const std::wstring& date) {
    const std::vector<std::wstring> fields = SplitString(date, L'/');
    return SecondsSince(ParseInt32(fields[0]), ParseInt32(fields[1]), ParseInt32(fields[2]));
}

bool IsOlderThanAWeek(double seconds) {
    return seconds > kWeek;
}

bool isImageStateComplete() {
    LogMessage("[isImageStateComplete] start");
    const std::wstring state = ReadRegString(kLocalMachine, kSetupStateKey, L"ImageState");
    if (state == ERROR_READREG) {
        LogMessage("[isImageStateComplete] REG_IMAGE_STATE is NULL");
        return false;
    }
    if (state == L"IMAGE_STATE_COMPLETE") {
        LogMessage("[isImageStateComplete] REG_IMAGE_STATE == IMAGE_STATE_COMPLETE");
        return true;
    }
    LogMessage("[isImageStateComplete] REG_IMAGE_STATE != IMAGE_STATE_COMPLETE");
    return false;
}

std::wstring getManufacturingDate() {
    std::wstring stored = StoredManufacturingDate();
    if (!stored.empty()) {
        return stored;
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
    if (date == ERROR_READREG || !HasThreeFields(date)) {
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
    return MainSwitchIsOn(value);
}

bool isOverTotalCollectTime() {
    std::string text;
    if (!FindSetting("totalCollectTime", text)) {
        LogMessage("[Utility] cannot get totalCollectTime from setting file.\n");
        return true;
    }
    const std::int32_t months = ParseInt32(text);
    const std::uint32_t limit = CollectSeconds(months);
    LogMessage("[Utility]  totalCollectTime from setting file : " + std::to_string(months) + "months.\n");
    std::optional<std::uint64_t> start = ActivationTime();
    if (!start) {
        start = ManufacturingTime(getManufacturingDate());
    }
    if (start && IsWithin(*start, limit)) {
        LogMessage("[Utility]  isOverTotalCollectTimeStatus = false.\n");
        return false;
    }
    LogMessage("[Utility]  isOverTotalCollectTimeStatus = true.\n");
    return true;
}

bool isSpecificDojobDay() {
    std::string text;
    if (!FindSetting("intervalTimer", text)) {
        LogMessage("[Utility] intervalTimer : NULL");
        return false;
    }
    LogMessage("[Utility] specificTime : " + text);
    const std::int64_t settingDuringTime = WrapMultiply(ParseInt32(text), kDay);
    const std::wstring stored = ReadProductValue(L"lastDojobTime");
    const std::int64_t regLastDoTime = stored == ERROR_READREG ? 0 : ParseInt64(stored);
    const std::int64_t currentTimestamp = platform::now_seconds();
    const std::int64_t midnightTimeStamp = LocalMidnight(currentTimestamp);
    if (regLastDoTime == 0) {
        LogMessage("[Utility] never set lastDojobTime");
        WriteLastDojobTime(midnightTimeStamp);
        return true;
    }
    const std::int64_t gapEnd = WrapAdd(regLastDoTime, settingDuringTime);
    LogMessage("[Utility] regLastDoTime : " + std::to_string(regLastDoTime));
    LogMessage("[Utility] settingDuringTime : " + std::to_string(settingDuringTime));
    LogMessage("[Utility] currentTimestamp : " + std::to_string(currentTimestamp));
    LogMessage("[Utility] midnightTimeStamp : " + std::to_string(midnightTimeStamp));
    LogMessage("[Utility] regLastDoTime + settingDuringTime : " + std::to_string(gapEnd));
    if (WrapAdd(gapEnd, kDay) <= currentTimestamp) {
        // The words leave out the day that the test adds.
        LogMessage("[Utility] regLastDoTime + settingDuringTime <= currentTimestamp : ");
        WriteLastDojobTime(midnightTimeStamp);
        return true;
    }
    if (WrapSubtract(currentTimestamp, regLastDoTime) < kDay) {
        LogMessage("[Utility] currentTimestamp - regLastDoTime < 86400");
        return true;
    }
    return false;
}

}  // namespace zorvalis
