#include <gtest/gtest.h>

#include <thread>

#include "support/notebook.h"

namespace zorvalis {
namespace {

// From another thread, which has to wait for the lock.
std::uint64_t DoJobElsewhere(const wchar_t* name) {
    platform::set_clock({0, 0.001});
    std::uint64_t result = 0;
    std::thread([&] { result = Jobs().DoJob(name, 0, 0); }).join();
    return result;
}

TEST(DoJob, RunsTheJobOfExactlyThatName) {
    Notebook machine;
    machine.default_setting(R"({"thermal": "m60"})");
    Jobs().RequestMainSwitch(0);
    for (const wchar_t* name : {L"", L"jobsetmainswitch", L"jobSetMainSwitch ", L"jobSetMain", L"jobZprpCheckSN"}) {
        EXPECT_EQ(Jobs().DoJob(name, 0, 0), 0U);
    }
    EXPECT_EQ(Value(L"MainSwitch"), ERROR_READREG);
    EXPECT_EQ(Jobs().DoJob(L"jobSetMainSwitch", 0, 0), 1U);
    EXPECT_EQ(Value(L"MainSwitch"), L"0");
    EXPECT_EQ(Jobs().CurrentSettings()->jobValues[0], L"m60") << "the default rules at once";
    Jobs().RequestMainSwitch(2);
    EXPECT_EQ(DoJobElsewhere(L"jobSetMainSwitch"), 1U);
    EXPECT_EQ(Value(L"MainSwitch"), L"1");
    EXPECT_EQ(Jobs().CurrentSettings()->jobValues[0], L"m30");
}

TEST(DoJob, HandsTheApplicationFolderToTheHardware) {
    Notebook machine;
    machine.change_hardware(R"({"WMISetAppPath": {"value": "", "flag0": {"fail": true}}})");
    Jobs().RequestAppFolder(L"D:\\gr\u00FC\u00DFe");
    EXPECT_EQ(Jobs().DoJob(L"jobSetAppFolder", 0, 0), 0U);
    const std::string own = read_text(platform::machine_folder() + "/hardware.json");
    const std::string file = own.empty() ? read_text(machine.bin_folder() + "hardware.json") : own;
    EXPECT_NE(file.find("\"D:\\\\gr\u00FC\u00DFe\""), std::string::npos) << file;
    Jobs().RequestAppFolder(std::wstring(1000, L'x').c_str());
    EXPECT_EQ(Jobs().DoJob(L"jobSetAppFolder", 0, 0), 0U);
}

TEST(DoJob, EndsAFailedJobInWordsAndReleasesTheLock) {
    Notebook machine;
    SetValue(L"lastDojobTime", L"yesterday");
    EXPECT_EQ(Jobs().DoJob(L"jobCheckBgfsReg", 0, 0), 0U);
    Jobs().DoCollectJob(L"", 1, true, 0);
    EXPECT_EQ(machine.stored(), "");
    ExpectEventLog({"DoJob Exception", "DoCJob Exception"});
    Jobs().RequestMainSwitch(1);
    EXPECT_EQ(DoJobElsewhere(L"jobSetMainSwitch"), 1U);
}

TEST(BigdataCheck, TurnsAnOccasionIntoAMask) {
    struct Case {
        const char* name;
        const wchar_t* action;
        bool timed;
        std::uint32_t mask;
        void (*prepare)(Notebook&) = [](Notebook&) {};
    };
    const Case cases[] = {
        {"everything is due, whatever the action", L"ac_dc", true, 15},
        {"power", L"poweronoff", false, 19},
        {"suspend", L"suspend_resume", false, 35},
        {"power source", L"ac_dc", false, 67},
        {"lid", L"lid_open_close", false, 131},
        {"fan", L"quiet_fan", false, 256},
        {"battery", L"battery_health", false, 512},
        {"hardware", L"wmi_event", false, 1027},
        {"no action", L"", false, 0},
        {"another case", L"AC_DC", false, 0},
        {"a timed kind is no event", L"thermal", false, 0},
        {"unknown codes", L"", true, 2,
         [](Notebook& it) { it.change_setting(R"({"thermal": "m7", "upload": "", "systeminfo": "M5"})"); }},
        {"a word in another case", L"ac_dc", false, 0,
         [](Notebook& it) { it.change_setting(R"({"ac_dc": "AC_DC"})"); }},
        {"another event's word", L"quiet_fan", false, 256,
         [](Notebook& it) { it.change_setting(R"({"ac_dc": "quiet_fan"})"); }},
        {"another chassis", L"ac_dc", false, 0,
         [](Notebook& it) { it.change_hardware(R"({"WMIGetSystemChassisTypes": "notebook"})"); }},
        {"the chassis is asked for with the flag", L"", true, 0,
         [](Notebook& it) {
             it.change_hardware(R"({"WMIGetSystemChassisTypes": {"value": "Desktop", "flag0": "Notebook"}})");
         }},
        {"no library", L"", true, 0, [](Notebook& it) { it.remove_library(); }},
        {"switched off", L"", true, 0, [](Notebook&) { SetValue(L"MainSwitch", L"0"); }},
        {"switched off for events", L"ac_dc", false, 0, [](Notebook&) { SetValue(L"MainSwitch", L"0"); }},
        {"not ready", L"", true, 0,
         [](Notebook&) { WriteRegString(kLocalMachine, kSetupStateKey, L"ImageState", L""); }},
        {"over", L"", true, 0, [](Notebook& it) { it.change_setting(R"({"totalCollectTime": "0"})"); }},
        {"not today", L"", true, 0,
         [](Notebook&) { SetValue(L"lastDojobTime", std::to_wstring(platform::now_seconds() - 90000)); }},
    };
    for (const Case& one : cases) {
        Notebook machine;
        one.prepare(machine);
        EXPECT_EQ(Jobs().BigdataCheck(one.action, one.timed, platform::now_seconds()), one.mask) << one.name;
        EXPECT_EQ(Value(L"GetBatteryPower") != ERROR_READREG, one.timed && one.mask != 0) << one.name;
        EXPECT_EQ(Value(L"upload"), ERROR_READREG) << one.name;
    }
}

TEST(BigdataCheck, AsksEveryPredicateForItsEffects) {
    Notebook machine;
    machine.change_setting(R"({"totalCollectTime": "0"})");
    DeleteRegValue(kLocalMachine, kFactoryConfigKey, L"ManufacturingDate");
    EXPECT_EQ(Jobs().BigdataCheck(L"", true, 1), 0U);
    EXPECT_EQ(Value(L"MainSwitch"), L"1");
    EXPECT_NE(Value(L"FakeManufacturingDate"), ERROR_READREG);
    EXPECT_NE(Value(L"lastDojobTime"), ERROR_READREG);
}

TEST(RegTimer, IsDueAtItsIntervalAndStartsAnewAtAWholeMinute) {
    constexpr std::int64_t kStart = 1700000040;  // a whole minute
    const struct {
        const wchar_t* name;
        const wchar_t* stored;
        std::int64_t since;
        std::int32_t interval;
        bool due;
        const wchar_t* after;
    } cases[] = {{L"GetThermal", ERROR_READREG, 59, 300, true, L"1700000040"},
                 {L"GetThermal", L"1700000040", 299, 300, false, L"1700000040"},
                 {L"GetThermal", L"1700000040", 300, 300, true, L"1700000340"},
                 {L"upload", ERROR_READREG, 0, 86400, true, ERROR_READREG},
                 {L"upload", L"1700000040", 86400, 86400, true, L"1700000040"},
                 {L"upload", L"1700000040", 86399, 86400, false, L"1700000040"},
                 {L"getSettingFile", L"1700000040", 86400, 86400, true, L"1700000040"}};
    const Notebook machine;
    for (const auto& one : cases) {
        SetValue(one.name, one.stored);
        EXPECT_EQ(Jobs().checkRegTimer(one.name, kStart + one.since, one.interval), one.due) << one.since;
        EXPECT_EQ(Value(one.name), one.after) << one.since;
    }
    SetValue(L"GetThermal", L"soon");
    EXPECT_THROW(Jobs().checkRegTimer(L"GetThermal", kStart, 300), std::invalid_argument);
    EXPECT_EQ(Value(L"GetThermal"), L"soon");
}

TEST(DoCollectJob, StoresATimedPassUnderTheNumbersOfItsPeriods) {
    Notebook machine;
    machine.change_setting(R"({"thermal": "d7", "battery_power": "m10", "systeminfo": "d30"})");
    const std::int64_t now = SetClock(2026, 11, 20, 12, 34, 7);
    Jobs().DoCollectJob(L"", 1, true, now);
    EXPECT_EQ(machine.stored(), "O Thermal 1, O Battery_Power 1, O SysInfo 1");
    EXPECT_EQ(
        machine.row("O", "SELECT t.freq, b.freq, s.freq, t.local_time FROM Thermal t, Battery_Power b, SysInfo s"),
        "0 2 9 2026-11-20 12:34:07");
    Jobs().DoCollectJob(L"", 1, true, now + 592);
    EXPECT_EQ(machine.stored(), "O Thermal 1, O Battery_Power 1, O SysInfo 1");
    Jobs().DoCollectJob(L"", 1, true, now + 593);
    EXPECT_EQ(machine.stored(), "O Thermal 1, O Battery_Power 2, O SysInfo 1");
}

TEST(DoCollectJob, StoresAnEventUnderItsTriggerAndThePresentTime) {
    Notebook machine;
    SetClock(2026, 11, 20, 12, 34, 0);
    Jobs().DoCollectJob(L"ac_dc", JOB_TRIGGER_AC_OUT, false, 0);
    EXPECT_EQ(machine.stored(), "E Thermal 1, E Battery_Power 1, E UserBehavior 1");
    EXPECT_EQ(machine.row("E",
                          "SELECT t.freq, b.freq, u.freq, substr(u.ac_out, 1, 16) "
                          "FROM Thermal t, Battery_Power b, UserBehavior u"),
              "15 15 15 2026-11-20 12:34");
}

}  // namespace
}  // namespace zorvalis
