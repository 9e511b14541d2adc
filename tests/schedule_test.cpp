#include <gtest/gtest.h>

#include "base/number.h"
#include "common/time.h"
#include "common/wide_to_utf8.h"
#include "jobs/schedule_predicates.h"
#include "support/notebook.h"
#include "support/traced.h"

namespace zorvalis {
namespace {

constexpr std::int64_t kDay = 86400;

void SetFactoryDate(const std::wstring& date) {
    ASSERT_TRUE(WriteRegString(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate", date));
}

TEST(MainSwitch, IsOnUntilItIsAnythingButOne) {
    const Notebook machine;
    EXPECT_TRUE(isMainSwitchEnable());
    EXPECT_EQ(Value(L"MainSwitch"), L"1");
    EXPECT_TRUE(isMainSwitchEnable());
    for (const wchar_t* off : {L"0", L"2", L"", L"1 "}) {
        SetValue(L"MainSwitch", off);
        EXPECT_FALSE(isMainSwitchEnable());
        EXPECT_EQ(Value(L"MainSwitch"), off);
    }
}

TEST(Readiness, NeedsTheCompleteImage) {
    const Notebook machine;
    EXPECT_TRUE(isReadyToDoJobByManufacturingDate());
    for (const wchar_t* state : {ERROR_READREG, L"IMAGE_STATE_COMPLETE ", L"image_state_complete", L""}) {
        ASSERT_TRUE(WriteRegString(kLocalMachine, kSetupStateKey, L"ImageState", state));
        EXPECT_FALSE(isReadyToDoJobByManufacturingDate());
    }
}

TEST(Readiness, ComesAfterMoreThanAWeek) {
    const wchar_t* const kNone = ERROR_READREG;
    const struct {
        const char* name;
        const wchar_t* factory;
        const wchar_t* fake;
        bool ready;
        const wchar_t* fakeAfter;
    } cases[] = {{"a week and a day", L"2026/11/12", kNone, true, kNone},
                 {"a day less than a week", L"2026/11/14", kNone, false, kNone},
                 {"malformed, a good fake date", L"2019-01-02", L"2026/11/01", true, L"2026/11/01"},
                 {"none", kNone, kNone, false, L"2026/11/20"},
                 {"both malformed", L"2019", L"yesterday", false, L"2026/11/20"}};
    const Notebook machine;
    SetClock(2026, 11, 20, 0, 0, 0);
    for (const auto& one : cases) {
        SetFactoryDate(one.factory);
        SetValue(L"FakeManufacturingDate", one.fake);
        EXPECT_EQ(isReadyToDoJobByManufacturingDate(), one.ready) << one.name;
        EXPECT_EQ(Value(L"FakeManufacturingDate"), one.fakeAfter) << one.name;
    }
    SetFactoryDate(L"a/b/c");
    EXPECT_THROW(isReadyToDoJobByManufacturingDate(), std::invalid_argument);
}

TEST(Rules, LetTheFactorysDateWin) {
    const struct {
        const wchar_t *factory, *substitute;
        DateSource source;
    } cases[] = {{L"2019/1/2", L"2026/11/19", DateSource::factory},
                 {L"2019/1/2 10:00", ERROR_READREG, DateSource::factory},
                 {L"2019/01/02/3", L"2026/11/19", DateSource::substitute},
                 {L"2019/01/", L"2026/11/01", DateSource::substitute},
                 {ERROR_READREG, L"2026/11/01", DateSource::substitute},
                 {L"2019-01-02", L"yesterday", DateSource::none}};
    for (const auto& one : cases) {
        const ManufacturingDate date = ChooseDate(one.factory, one.substitute);
        EXPECT_EQ(date.source, one.source) << WideToUtf8(one.factory);
        EXPECT_EQ(date.text, one.source == DateSource::factory      ? one.factory
                             : one.source == DateSource::substitute ? one.substitute
                                                                    : L"");
    }
    EXPECT_FALSE(IsOlderThanAWeek(AgeInSeconds({2026, 11, 13}, 1000, 1000 + 7 * kDay))) << "exactly a week";
    EXPECT_TRUE(IsOlderThanAWeek(AgeInSeconds({2026, 11, 13}, 1000, 1001 + 7 * kDay)));
    EXPECT_FALSE(IsOlderThanAWeek(AgeInSeconds({9999, 1, 1}, -1, 1000))) << "a year that the C library lacks";
    EXPECT_TRUE(IsOlderThanAWeek(AgeInSeconds({-5, 1, 1}, -1, 1000)));
}

TEST(Rules, EndThePeriodAfterItsMonths) {
    const std::uint64_t now = *ManufacturingTicks("2026/11/17") + 12 * 3600 * kTicksPerSecond;
    const struct {
        const char* name;
        const char *activated, *made;
        std::int32_t months;
        PeriodState state;
    } cases[] = {{"within a month", "\xFF", "2026/10/19", 1, PeriodState::within},
                 {"after it", "\xFF", "2026/10/18", 1, PeriodState::over},
                 {"no months", "\xFF", "2026/10/19", 0, PeriodState::over},
                 {"the future", "\xFF", "2026/12/24", 1, PeriodState::future},
                 {"activation wins", "2026-10-25 10:20:30", "2019/1/1", 1, PeriodState::within},
                 {"activated long ago", "2019-10-25 10:20:30", "2026/11/1", 1, PeriodState::over},
                 {"the last second, in local time of UTC+8", "2026-10-18 20:00:01", "", 1, PeriodState::within},
                 {"the first one after it", "2026-10-18 20:00:00", "", 1, PeriodState::over},
                 {"no activation date", "2026-13-45 10:20:30", "2026/11/1", 1, PeriodState::within},
                 {"no activation", "", "2026/11/1", 1, PeriodState::within},
                 {"no date", "\xFF", "2026/13/1", 1, PeriodState::no_start},
                 {"this tick", "2026-11-17 20:00:00", "", 1, PeriodState::over},
                 {"months that wrap to one", "\xFF", "2026/10/1", 1658, PeriodState::over},
                 {"and lie within it", "\xFF", "2026/10/30", 1658, PeriodState::within},
                 {"months beyond 31 bits of seconds", "\xFF", "1960/1/1", 829, PeriodState::within}};
    for (const auto& one : cases) {
        const std::optional<std::uint64_t> activated = ActivationTicks(one.activated);
        const CollectPeriod period = PeriodAt(activated ? activated : ManufacturingTicks(one.made), one.months, now);
        EXPECT_EQ(period.state, one.state) << one.name;
        EXPECT_EQ(period.IsOver(), one.state != PeriodState::within) << one.name;
    }
    EXPECT_EQ(PeriodAt(ManufacturingTicks("1970/1/2"), 1, now).until, 31 * kDay);
}

TEST(CollectTime, GoesByTheHardwareAndTheSettings) {
    const struct {
        const char* name;
        const char* months;     // JSON
        const char* activated;  // JSON
        bool over;
    } cases[] = {{"within a month of manufacture", "\"1 month\"", "\"blank\"", false},
                 {"no key", "null", "\"blank\"", true},
                 {"activated long ago", "\"1\"", "\"2019-10-25 10:20:30\"", true},
                 {"activation cannot be read", "\"1\"", "\"fail\"", false}};
    Notebook machine;
    SetClock(2026, 11, 20, 20);
    SetFactoryDate(L"2026/10/23");
    for (const auto& one : cases) {
        machine.change_hardware(std::string("{\"GPNV_ActivatedTime\": ") + one.activated + "}");
        machine.change_setting(std::string("{\"totalCollectTime\": ") + one.months + "}");
        EXPECT_EQ(isOverTotalCollectTime(), one.over) << one.name;
    }
    DeleteRegValue(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate");
    machine.change_hardware(R"({"GPNV_ActivatedTime": "2026-11-12 10:20:30"})");
    EXPECT_FALSE(isOverTotalCollectTime());
    EXPECT_EQ(Value(L"FakeManufacturingDate"), ERROR_READREG) << "an activated machine needs no date";
    machine.change_setting(R"({"totalCollectTime": "for ever"})");
    EXPECT_THROW(isOverTotalCollectTime(), std::invalid_argument);
    machine.change_setting(R"({"totalCollectTime": 36})");
    EXPECT_THROW(isOverTotalCollectTime(), std::domain_error);
}

TEST(DojobDay, BeginsAtMidnightAndLeavesTheInterval) {
    const Notebook machine;
    const std::int64_t midnight = SetClock(2026, 11, 20, 0, 0, 0);
    const struct {
        const char* name;
        int day;
        int hour;
        bool today;
        int startedOn;
    } cases[] = {{"the first call ever", 20, 15, true, 20},      {"later that day", 20, 23, true, 20},
                 {"the next day is left out", 21, 0, false, 20}, {"all of it", 21, 23, false, 20},
                 {"a new day after it", 22, 9, true, 22},        {"which lasts", 22, 23, true, 22},
                 {"a clock set back", 19, 12, true, 22},         {"days later", 27, 8, true, 27}};
    for (const auto& one : cases) {
        SetClock(2026, 11, one.day, one.hour, 0, 1);
        EXPECT_EQ(isSpecificDojobDay(), one.today) << one.name;
        EXPECT_EQ(Value(L"lastDojobTime"), std::to_wstring(midnight + (one.startedOn - 20) * kDay)) << one.name;
    }
}

TEST(DojobDay, IsToldWithItsTimes) {
    const Notebook machine;
    const std::int64_t midnight = SetClock(2026, 11, 20, 0, 0, 0), now = SetClock(2026, 11, 20, 12, 0, 1);
    SetValue(L"lastDojobTime", std::to_wstring(now - 2 * kDay));
    EXPECT_EQ(Traced([] { EXPECT_TRUE(isSpecificDojobDay()); }),
              (std::vector<std::string>{
                  "[Utility] specificTime : 1", "[Utility] regLastDoTime : " + std::to_string(now - 2 * kDay),
                  "[Utility] settingDuringTime : 86400", "[Utility] currentTimestamp : " + std::to_string(now),
                  "[Utility] midnightTimeStamp : " + std::to_string(midnight),
                  "[Utility] regLastDoTime + settingDuringTime : " + std::to_string(now - kDay),
                  "[Utility] regLastDoTime + settingDuringTime <= currentTimestamp : "}));
}

TEST(DojobDay, FailsWithoutNumbers) {
    Notebook machine;
    SetValue(L"lastDojobTime", L"yesterday");
    EXPECT_THROW(isSpecificDojobDay(), std::invalid_argument);
    machine.change_setting(R"({"intervalTimer": "never"})");
    RemoveValue(L"lastDojobTime");
    EXPECT_THROW(isSpecificDojobDay(), std::invalid_argument);
    machine.change_setting(R"({"intervalTimer": null})");
    EXPECT_FALSE(isSpecificDojobDay());
    EXPECT_EQ(Value(L"lastDojobTime"), ERROR_READREG);
}

TEST(Rules, LeaveTheInterval) {
    constexpr std::int64_t kNow = 1700000000;
    const struct {
        std::int32_t pause;
        std::int64_t last;
        DojobState state;
        std::int64_t gapEnd, next;
    } cases[] = {{0, kNow - 86340, DojobState::runs, 1699913660, 1700000060},
                 {0, kNow - 86400, DojobState::begins, 1699913600, 1700000000},
                 {3, kNow - 86399, DojobState::runs, 1700172801, 1700259201},
                 {3, kNow - 86400, DojobState::paused, 1700172800, 1700259200},
                 {3, kNow - 345540, DojobState::paused, 1699913660, 1700000060},
                 {3, kNow - 345600, DojobState::begins, 1699913600, 1700000000},
                 {-1, kNow - 60, DojobState::begins, 1699913540, 1699999940},
                 {1, kNow + 86400, DojobState::runs, 1700172800, 1700259200},
                 {1, 0, DojobState::first, 86400, 172800},
                 {24855, kNow - 172800, DojobState::paused, 3847299200, 3847385600},
                 {24856, kNow - 172800, DojobState::begins, -447581696, -447495296},  // wraps
                 {1, 9223372036854775807, DojobState::begins, -9223372036854689409, -9223372036854603009}};
    for (const auto& one : cases) {
        const DojobDay day = DojobDayAt(one.pause, one.last, kNow);
        EXPECT_EQ(day.state, one.state) << one.pause << " " << one.last;
        EXPECT_EQ(day.gapEnd, one.gapEnd) << one.pause << " " << one.last;
        EXPECT_EQ(day.next, one.next) << one.pause << " " << one.last;
    }
}

TEST(Rules, MakeATimerDueAtItsInterval) {
    constexpr std::int64_t kNow = 1700000300;
    const struct {
        const wchar_t* stored;
        TimerState state;
        std::int64_t next;
    } cases[] = {{ERROR_READREG, TimerState::first, kNow},
                 {L"1700000001", TimerState::waiting, kNow + 1},
                 {L"1700000000", TimerState::due, kNow},
                 {L"1700000301", TimerState::future, kNow + 301},
                 {L"9223372036854775807", TimerState::due, WrapAdd(9223372036854775807, 300)}};
    for (const auto& one : cases) {
        const RegTimer timer = TimerAt(one.stored, kNow, 300);
        EXPECT_EQ(timer.state, one.state) << WideToUtf8(one.stored);
        EXPECT_EQ(timer.next, one.next) << WideToUtf8(one.stored);
    }
    EXPECT_THROW(TimerAt(L"soon", kNow, 300), std::invalid_argument);
}

}  // namespace
}  // namespace zorvalis
