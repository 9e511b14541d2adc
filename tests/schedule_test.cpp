#include <gtest/gtest.h>

#include <array>
#include <ctime>

#include "jobs/schedule_predicates.h"
#include "support/notebook.h"

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
    } cases[] = {{"long ago, with text after the numbers", L"2019/1/2 10:00", kNone, true, kNone},
                 {"a week and a day", L"2026/11/12", kNone, true, kNone},
                 {"a day less than a week", L"2026/11/14", kNone, false, kNone},
                 {"tomorrow", L"2026/11/21", kNone, false, kNone},
                 {"malformed, a good fake date", L"2019-01-02", L"2026/11/01", true, L"2026/11/01"},
                 {"four fields", L"2019/01/02/3", L"2026/11/19", false, L"2026/11/19"},
                 {"a final slash", L"2019/01/", L"2026/11/01", true, L"2026/11/01"},
                 {"none", kNone, kNone, false, L"2026/11/20"},
                 {"both malformed", L"2019", L"yesterday", false, L"2026/11/20"},
                 {"the factory's wins", L"2019/1/2", L"2026/11/19", true, L"2026/11/19"}};
    const Notebook machine;
    for (const auto& one : cases) {
        SetClock(2026, 11, 20, 0, 0, 0);
        SetFactoryDate(one.factory);
        SetValue(L"FakeManufacturingDate", one.fake);
        EXPECT_EQ(isReadyToDoJobByManufacturingDate(), one.ready) << one.name;
        EXPECT_EQ(Value(L"FakeManufacturingDate"), one.fakeAfter) << one.name;
    }
    SetFactoryDate(L"2026/11/13");
    bool ready = true;
    std::int64_t midnight = 0;
    do {  // again if the clock ticks meanwhile
        midnight = SetClock(2026, 11, 20, 0, 0, 0);
        ready = isReadyToDoJobByManufacturingDate();
    } while (platform::now_seconds() != midnight);
    EXPECT_FALSE(ready) << "exactly a week";
    SetClock(2026, 11, 20, 0, 0, 30);
    EXPECT_TRUE(isReadyToDoJobByManufacturingDate());
    SetFactoryDate(L"a/b/c");
    EXPECT_THROW(isReadyToDoJobByManufacturingDate(), std::invalid_argument);
}

TEST(CollectTime, IsOverAfterItsMonths) {
    const char* const kBlank = "\"blank\"";
    const struct {
        const char* name;
        const char* months;     // JSON
        const char* activated;  // JSON
        const wchar_t* factory;
        bool over;
    } cases[] = {{"within a month of manufacture", "\"1 month\"", kBlank, L"2026/10/23", false},
                 {"thirty days after it", "\"1\"", kBlank, L"2026/10/21", true},
                 {"no key", "null", kBlank, L"2026/10/23", true},
                 {"no months", "\"0\"", kBlank, L"2026/10/23", true},
                 {"in the future", "\"1\"", kBlank, L"2026/12/24", true},
                 {"activation wins", "\"1\"", "\"2026-10-25 10:20:30\"", L"2019/1/1", false},
                 {"activated long ago", "\"1\"", "\"2019-10-25 10:20:30\"", L"2026/11/1", true},
                 {"activation is no date", "\"1\"", "\"2026-13-45 10:20:30\"", L"2026/11/1", false},
                 {"activation cannot be read", "\"1\"", "\"fail\"", L"2026/11/1", false},
                 {"manufacture is no date", "\"1\"", kBlank, L"2026/13/1", true},
                 {"months that wrap to one", "\"1658\"", kBlank, L"2026/10/1", true},
                 {"and lie within it", "\"1658\"", kBlank, L"2026/10/30", false},
                 {"months beyond 31 bits of seconds", "\"829\"", kBlank, L"1960/1/1", false}};
    Notebook machine;
    SetClock(2026, 11, 20, 20);  // the dates are UTC's: the same day or the next in every zone
    for (const auto& one : cases) {
        SetFactoryDate(one.factory);
        machine.change_hardware(std::string("{\"GPNV_ActivatedTime\": ") + one.activated + "}");
        machine.change_setting(std::string("{\"totalCollectTime\": ") + one.months + "}");
        EXPECT_EQ(isOverTotalCollectTime(), one.over) << one.name;
    }
    machine.change_setting(R"({"totalCollectTime": "for ever"})");
    EXPECT_THROW(isOverTotalCollectTime(), std::invalid_argument);
    machine.change_setting(R"({"totalCollectTime": 36})");
    EXPECT_THROW(isOverTotalCollectTime(), std::domain_error);
}

TEST(CollectTime, TakesTheActivationForLocalTimeOfUtcPlus8) {
    Notebook machine;
    const std::time_t end = SetClock(2026, 11, 20, 12);
    const std::time_t start = end - 30 * kDay + 8 * 3600;
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "\"%Y-%m-%d %H:%M:%S\"", std::gmtime(&start));
    machine.change_hardware(std::string("{\"GPNV_ActivatedTime\": ") + text.data() + "}");
    machine.change_setting(R"({"totalCollectTime": "1"})");
    EXPECT_TRUE(isOverTotalCollectTime());
    SetClock(2026, 11, 20, 11, 59, 0);
    EXPECT_FALSE(isOverTotalCollectTime());
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

TEST(DojobDay, FollowsItsSettingAndItsStoredStart) {
    const struct {
        const char* interval;  // JSON
        std::int64_t ago;      // the stored start, in seconds before now
        bool today;
        bool started;
    } cases[] = {{"\"0\"", kDay - 60, true, false},
                 {"\"0\"", kDay, true, true},
                 {"\"3\"", 4 * kDay - 60, false, false},
                 {"\"3 days\"", 4 * kDay, true, true},
                 {"\"-1\"", 60, true, true},
                 {"null", 60, false, false},
                 {"\"24855\"", 2 * kDay, false, false},
                 {"\"24856\"", 2 * kDay, true, true}};  // the last one wraps
    Notebook machine;
    for (const auto& one : cases) {
        const std::int64_t now = SetClock(2026, 11, 20, 12);
        machine.change_setting(std::string("{\"intervalTimer\": ") + one.interval + "}");
        SetValue(L"lastDojobTime", std::to_wstring(now - one.ago));
        EXPECT_EQ(isSpecificDojobDay(), one.today) << one.interval;
        EXPECT_EQ(Value(L"lastDojobTime"), std::to_wstring(now - (one.started ? kDay / 2 : one.ago))) << one.interval;
    }
    SetValue(L"lastDojobTime", L"yesterday");
    EXPECT_THROW(isSpecificDojobDay(), std::invalid_argument);
    SetValue(L"lastDojobTime", L"9223372036854775807");  // wraps into the past
    EXPECT_TRUE(isSpecificDojobDay());
}

}  // namespace
}  // namespace zorvalis
