// Local time by the zone of Windows, and texts in its code pages.
#include <windows.h>

#include <cstring>
#include <ctime>
#include <string>

#include "base/text.h"
#include "kit.h"
#include "platform/clock.h"
#include "platform/text.h"
#include "steps_machine.h"
#include "time_zone.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kEurope[] = L"W. Europe Standard Time";
constexpr std::int64_t kHour = 3600;

// The hour and minute of a moment in local time, "13:30".
std::string Clock(std::int64_t seconds) {
    std::tm local = {};
    char text[16] = {};
    platform::local_time(seconds, local);
    std::strftime(text, sizeof text, "%H:%M", &local);
    return text;
}

std::int64_t Midnight(int year, int month, int day) {
    std::tm local = {};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    return platform::local_seconds(local);
}

// Windows' setting while this process runs.
void Change(Findings& findings, ChangedZone& zone, const wchar_t* name) {
    const unsigned long error = zone.Set(name);
    if (error == ERROR_NOT_SUPPORTED || error == ERROR_CALL_NOT_IMPLEMENTED) {
        findings.Impossible("the time zone of Windows cannot be changed: " + ErrorText(error));
    }
    if (error != 0) {
        findings.Fail("Windows does not change its time zone: " + ErrorText(error));
    }
}

void FollowsZone(Findings& findings) {
    constexpr std::int64_t kMoment = 1768478400;  // 2026-01-15 12:00 UTC
    ChangedZone zone;
    findings.Saw("at first " + Clock(kMoment) + " for 12:00 UTC");
    struct {
        const wchar_t* name;
        const char* clock;
    } const zones[] = {{L"UTC", "12:00"},
                       {kEurope, "13:00"},
                       {L"India Standard Time", "17:30"},
                       {L"Hawaiian Standard Time", "02:00"},
                       {L"Line Islands Standard Time", "02:00"}};
    for (const auto& each : zones) {
        Change(findings, zone, each.name);
        findings.ExpectText(Clock(kMoment), each.clock,
                            "12:00 UTC in the zone " + platform::to_utf8(each.name) + ", set while this process runs");
    }
}

void UnusualDays(Findings& findings) {
    ChangedZone zone;
    Change(findings, zone, kEurope);
    const auto length = [](int month, int day) {
        return (Midnight(2026, month, day + 1) - Midnight(2026, month, day)) / kHour;
    };
    findings.ExpectNumber(length(3, 29), 23, "hours of the day on which summer time begins");
    findings.ExpectNumber(length(10, 25), 25, "hours of the day on which it ends");
    findings.ExpectNumber(length(7, 1), 24, "hours of another day");
    findings.ExpectText(Clock(1782907200), "14:00", "2026-07-01 12:00 UTC in summer time");
    // Here summer time begins at midnight.
    Change(findings, zone, L"Cuba Standard Time");
    std::tm local = {};
    local.tm_year = 126;
    local.tm_mon = 2;
    local.tm_mday = 8;
    const std::int64_t begin = platform::local_seconds(local);
    findings.Expect(begin == 1772946000 || begin == 1772946000 - kHour,
                    "a midnight that does not exist, 2026-03-08 in Cuba, is some hour beside it: " + Clock(begin));
    findings.ExpectNumber((Midnight(2026, 3, 9) - 1772946000) / kHour, 23, "hours of that day");
}

void FarTimes(Findings& findings) {
    struct {
        const char* what;
        std::int64_t seconds;
        bool hasDate;
    } const times[] = {{"a day before 1970", -86400 - 14 * kHour, false},
                       {"1970-01-03", 172800, true},
                       {"2999-12-31", 32503593600, true},
                       {"3001-06-01", 32548262400, false},
                       {"the largest number", INT64_MAX, false},
                       {"the smallest number", INT64_MIN, false}};
    for (const auto& time : times) {
        std::tm local = {};
        local.tm_mon = 77;
        const bool hasDate = platform::local_time(time.seconds, local);
        findings.Expect(
            hasDate == time.hasDate && (hasDate || local.tm_mon == 0),
            std::string(time.what) + (time.hasDate ? " has a local time" : " has none, and all fields are zero"));
    }
    std::tm before = {};
    before.tm_year = 60;
    before.tm_mday = 1;
    findings.ExpectNumber(platform::local_seconds(before), -1, "a local time of 1960 in seconds");
}

void CodePages(Findings& findings) {
    findings.Saw("the ANSI code page of this Windows is " + std::to_string(::GetACP()));
    const auto convert = [](std::uint32_t page, const wchar_t* text) {
        char bytes[32] = {};
        const int length = platform::wide_to_multi_byte(page, text, -1, bytes, sizeof bytes);
        return length > 0 ? Hexadecimal({reinterpret_cast<const std::uint8_t*>(bytes), std::strlen(bytes)})
                          : "error " + std::to_string(::GetLastError());
    };
    struct {
        const wchar_t* text;
        const char* hexadecimal;
    } const nearest[] = {{L"\u00E9", "e9"}, {L"\u0100", "41"}, {L"\uFF21", "41"}, {L"\u2032", "27"},
                         {L"\u221E", "38"}, {L"\u20AC", "80"}, {L"\u4E00", "3f"}, {L"\u0416", "3f"}};
    for (const auto& each : nearest) {
        char number[16] = {};
        std::snprintf(number, sizeof number, "U+%04X", static_cast<unsigned>(each.text[0]));
        findings.ExpectText(convert(1252, each.text), each.hexadecimal, std::string(number) + " in the code page 1252");
    }
    if (::GetACP() != 1252 && ::GetACP() != CP_UTF8) {
        findings.Saw("U+0100, U+4E00 and U+0416 here become " +
                     convert(platform::kCodePageAnsi, L"\u0100\u4E00\u0416") + "\"");
    }
    wchar_t wide[8] = {};
    findings.Expect(platform::multi_byte_to_wide(platform::kCodePageUtf8, "\xC3\x28", -1, wide, 8) == 0 &&
                        ::GetLastError() == platform::kNoUnicodeTranslation,
                    "bytes that are not UTF-8 are refused with 1113");
    findings.ExpectText(convert(platform::kCodePageAnsi, L"plain"), "706c61696e", "ASCII stays itself");
}

}  // namespace

std::vector<Step> TimeSteps() {
    return {
        {"7.17", "A running process follows a change of Windows' time zone", FollowsZone, 60, RestoreZone, false},
        {"7.18", "Days of 23 and 25 hours, and one without a midnight", UnusualDays, 60, RestoreZone, false},
        {"7.19", "Times before 1970 and after 3000 have no calendar form", FarTimes, 60, nullptr, false},
        {"7.20", "A character that a code page lacks becomes the nearest one", CodePages, 60, nullptr, false},
    };
}

}  // namespace zorvalis::acceptance
