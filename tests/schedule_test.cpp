#include <gtest/gtest.h>

#include <array>
#include <ctime>

#include "common/registry.h"
#include "jobs/schedule_predicates.h"
#include "platform/clock.h"
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
    for (const wchar_t* off : {L"0", L"2", L"", L"1 ", L"true"}) {
        SetValue(L"MainSwitch", off);
        EXPECT_FALSE(isMainSwitchEnable());
        EXPECT_EQ(Value(L"MainSwitch"), off);
    }
    SetValue(L"MainSwitch", L"1");
    EXPECT_TRUE(isMainSwitchEnable());
}

TEST(Readiness, NeedsTheCompleteImage) {
    const Notebook machine;
    EXPECT_TRUE(isReadyToDoJobByManufacturingDate());
    for (const wchar_t* state : {L"IMAGE_STATE_UNDEPLOYABLE", L"IMAGE_STATE_COMPLETE ", L"image_state_complete", L""}) {
        ASSERT_TRUE(WriteRegString(kLocalMachine, kSetupStateKey, L"ImageState", state));
        EXPECT_FALSE(isImageStateComplete());
        EXPECT_FALSE(isReadyToDoJobByManufacturingDate());
    }
    ASSERT_TRUE(DeleteRegValue(kLocalMachine, kSetupStateKey, L"ImageState"));
    EXPECT_FALSE(isReadyToDoJobByManufacturingDate());
}

TEST(Readiness, ComesAfterMoreThanAWeek) {
    const struct {
        const char* name;
        const wchar_t* factory;  // empty: none
        const wchar_t* fake;
        bool ready;
        const wchar_t* fakeAfter;
    } cases[] = {
        {"long ago", L"2019/1/2", L"", true, ERROR_READREG},
        {"with text after the numbers", L"2019/1/2 10:00", L"", true, ERROR_READREG},
        {"a week and a day", L"2026/11/12", L"", true, ERROR_READREG},
        {"a day less than a week", L"2026/11/14", L"", false, ERROR_READREG},
        {"tomorrow", L"2026/11/21", L"", false, ERROR_READREG},
        {"malformed, a good fake date", L"2019-01-02", L"2026/11/01", true, L"2026/11/01"},
        {"four fields", L"2019/01/02/3", L"2026/11/19", false, L"2026/11/19"},
        {"a final slash", L"2019/01/", L"2026/11/01", true, L"2026/11/01"},
        {"none", L"", L"", false, L"2026/11/20"},
        {"both malformed", L"2019", L"yesterday", false, L"2026/11/20"},
        {"the factory's wins", L"2019/1/2", L"2026/11/19", true, L"2026/11/19"},
    };
    for (const auto& one : cases) {
        const Notebook machine;
        SetClock(2026, 11, 20, 0, 0, 0);
        DeleteRegValue(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate");
        if (*one.factory != L'\0') {
            SetFactoryDate(one.factory);
        }
        if (*one.fake != L'\0') {
            SetValue(L"FakeManufacturingDate", one.fake);
        }
        EXPECT_EQ(isReadyToDoJobByManufacturingDate(), one.ready) << one.name;
        EXPECT_EQ(Value(L"FakeManufacturingDate"), one.fakeAfter) << one.name;
    }
    const Notebook machine;
    SetFactoryDate(L"2026/11/13");
    const auto readyAtMidnight = [] {
        for (;;) {
            const std::int64_t midnight = SetClock(2026, 11, 20, 0, 0, 0);
            const bool ready = isReadyToDoJobByManufacturingDate();
            if (platform::now_seconds() == midnight) {  // the clock has not ticked meanwhile
                return ready;
            }
        }
    };
    EXPECT_FALSE(readyAtMidnight()) << "exactly a week";
    SetFactoryDate(L"a/b/c");
    EXPECT_THROW(isReadyToDoJobByManufacturingDate(), std::invalid_argument);
    SetFactoryDate(L"99999999999/1/2");
    EXPECT_THROW(isReadyToDoJobByManufacturingDate(), std::out_of_range);
}

TEST(CollectTime, IsOverAfterItsMonths) {
    constexpr char kBlank[] = R"("blank")";
    const struct {
        const char* name;
        const char* months;     // null: no key
        const char* activated;  // JSON
        const wchar_t* factory;
        bool over;
    } cases[] = {
        {"a month from manufacture", "1 month", kBlank, L"2026/10/22", false},
        {"thirty days later", "1", kBlank, L"2026/10/21", true},
        {"no key", nullptr, kBlank, L"2026/10/22", true},
        {"no months", "0", kBlank, L"2026/10/22", true},
        {"in the future", "1", kBlank, L"2026/12/24", true},
        {"activation wins", "1", R"("2026-10-25 10:20:30")", L"2019/1/1", false},
        {"activated long ago", "1", R"("2019-10-25 10:20:30")", L"2026/11/1", true},
        {"activation is no date", "1", R"("2026-13-45 10:20:30")", L"2026/11/1", false},
        {"activation cannot be read", "1", "\"fail\"", L"2026/11/1", false},
        {"manufacture is no date", "1", kBlank, L"2026/13/1", true},
        {"wraps to a month", "1658", kBlank, L"2026/10/1", true},
        {"wraps to more than a month", "1658", kBlank, L"2026/10/30", false},
        {"beyond 31 bits", "829", kBlank, L"1960/1/1", false},
    };
    for (const auto& one : cases) {
        Notebook machine;
        SetClock(2026, 11, 20, 12);
        SetFactoryDate(one.factory);
        machine.change_hardware(std::string("{\"GPNV_ActivatedTime\": ") + one.activated + "}");
        machine.change_setting(one.months != nullptr ? std::string("{\"totalCollectTime\": \"") + one.months + "\"}"
                                                     : R"({"totalCollectTime": null})");
        EXPECT_EQ(isOverTotalCollectTime(), one.over) << one.name;
    }
    Notebook machine;
    machine.change_setting(R"({"totalCollectTime": "for ever"})");
    EXPECT_THROW(isOverTotalCollectTime(), std::invalid_argument);
    machine.change_setting(R"({"totalCollectTime": 36})");
    EXPECT_THROW(isOverTotalCollectTime(), std::domain_error);
}

// The firmware's text is UTC+8: a month after it ends eight hours earlier than the text would say in UTC.
TEST(CollectTime, TakesTheActivationForLocalTimeOfUtcPlus8) {
    for (const auto& [hour, over] : {std::pair{3, false}, {5, true}}) {
        Notebook machine;
        const std::int64_t noon = SetClock(2026, 11, 20, 12);
        const std::time_t start = noon - 30 * kDay + 4 * 3600;  // the period ends four hours from now
        std::array<char, 40> text{};
        const std::time_t shifted = start + 8 * 3600;
        std::strftime(text.data(), text.size(), "\"%Y-%m-%d %H:%M:%S\"", std::gmtime(&shifted));
        machine.change_hardware(std::string("{\"GPNV_ActivatedTime\": ") + text.data() + "}");
        machine.change_setting(R"({"totalCollectTime": "1"})");
        SetClock(2026, 11, 20, 12 + hour);
        EXPECT_EQ(isOverTotalCollectTime(), over) << hour;
    }
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
    } cases[] = {
        {"the first call ever", 20, 15, true, 20},      {"later that day", 20, 23, true, 20},
        {"the next day is left out", 21, 0, false, 20}, {"all of it", 21, 23, false, 20},
        {"a new day after it", 22, 9, true, 22},        {"which lasts", 22, 23, true, 22},
        {"a clock set back", 19, 12, true, 22},         {"days later", 27, 8, true, 27},
    };
    for (const auto& one : cases) {
        SetClock(2026, 11, one.day, one.hour, 0, 1);
        EXPECT_EQ(isSpecificDojobDay(), one.today) << one.name;
        EXPECT_EQ(Value(L"lastDojobTime"), std::to_wstring(midnight + (one.startedOn - 20) * kDay)) << one.name;
    }
}

TEST(DojobDay, FollowsItsSettingAndItsStoredStart) {
    const struct {
        const char* name;
        const char* interval;  // JSON
        std::int64_t ago;      // the stored start, in seconds before now; 0: the text "0"
        bool today;
        bool started;
    } cases[] = {
        {"no interval, within the day", "\"0\"", kDay - 60, true, false},
        {"no interval, after the day", "\"0\"", kDay, true, true},
        {"never started", "\"3\"", 0, true, true},
        {"in the gap", "\"3\"", 4 * kDay - 60, false, false},
        {"the gap is over", "\"3 days\"", 4 * kDay, true, true},
        {"a negative interval", "\"-1\"", 60, true, true},
        {"24855 days", "\"24855\"", 2 * kDay, false, false},
        {"24856 days wrap", "\"24856\"", 2 * kDay, true, true},
        {"no key", "null", 60, false, false},
    };
    for (const auto& one : cases) {
        Notebook machine;
        const std::int64_t now = SetClock(2026, 11, 20, 12);
        machine.change_setting(std::string("{\"intervalTimer\": ") + one.interval + "}");
        const std::wstring stored = std::to_wstring(one.ago == 0 ? 0 : now - one.ago);
        SetValue(L"lastDojobTime", stored);
        EXPECT_EQ(isSpecificDojobDay(), one.today) << one.name;
        EXPECT_EQ(Value(L"lastDojobTime"), one.started ? std::to_wstring(now - kDay / 2) : stored) << one.name;
    }
    Notebook machine;
    SetValue(L"lastDojobTime", L"yesterday");
    EXPECT_THROW(isSpecificDojobDay(), std::invalid_argument);
    SetValue(L"lastDojobTime", L"9223372036854775807");  // wraps into the past
    EXPECT_TRUE(isSpecificDojobDay());
    machine.change_setting(R"({"intervalTimer": "99999999999"})");
    EXPECT_THROW(isSpecificDojobDay(), std::out_of_range);
}

}  // namespace
}  // namespace zorvalis
