// The receiver of hardware events on the stand-in machine: its gates and its end.
#include "events/wmi_event_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "common/log.h"
#include "platform/stand_in/step_failure.h"
#include "support/notebook.h"
#include "support/traced.h"

namespace zorvalis {
namespace {

constexpr char kRows[] = "W Thermal 1, W Battery_Power 1, W UserBehavior 1";

class WmiEvents : public testing::Test {
protected:
    ~WmiEvents() override {
        platform::fail_step("", 0);
        platform::set_clock({});
    }

    // The wait begins with a 0; then the number comes, and any other change wakes it: when exactly it begins to listen
    // cannot be seen.
    static void Wake(std::uint32_t number) {
        std::atomic<bool> ended{false};
        std::thread waiting([&] {
            EventSink sink(154, 155);
            WmiEventManager().waitForWmiEvent(sink);
            ended = true;
        });
        for (bool sent = false; !ended; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
            if (sent) {
                SetValue(L"Other", L"any");
            } else if (Pending() == L"0") {
                sent = WriteRegDword(kLocalMachine, kProductKey, kPendingEvent, number);
            }
        }
        waiting.join();
    }

    static std::wstring Pending() { return ReadRegDword(kLocalMachine, kProductKey, kPendingEvent); }

    Notebook machine;
};

TEST_F(WmiEvents, CollectForTwoNumbersAndOnlyThroughTheGates) {
    struct Case {
        const char* name;
        std::uint32_t number;
        const char* stored;
        const wchar_t* pending;
        int gates;  // that say that they let it through
        void (*prepare)(Notebook&) = [](Notebook&) {};
    };
    const std::vector<Case> cases = {
        {"graphics", 154, kRows, L"0", 2},
        {"connector", 155, kRows, L"0", 2},
        {"another number", 153, "", L"0", 2},
        {"switched off", 154, "", L"154", 0, [](Notebook&) { SetValue(L"MainSwitch", L"0"); }},
        {"never asked", 154, "", L"154", 0, [](Notebook&) { RemoveValue(L"MainSwitch"); }},
        {"neither on nor off", 154, "", L"154", 0, [](Notebook&) { SetValue(L"MainSwitch", L"2"); }},
        {"over", 154, "", L"0", 0, [](Notebook& it) { it.change_setting(R"({"totalCollectTime": "0"})"); }},
        {"no number", 154, "", L"0", 0, [](Notebook& it) { it.change_setting(R"({"totalCollectTime": "ever"})"); }},
        {"not today", 154, "", L"0", 1,
         [](Notebook&) { SetValue(L"lastDojobTime", std::to_wstring(platform::now_seconds() - 90000)); }},
    };
    for (const Case& one : cases) {
        Notebook fresh;
        SetValue(L"MainSwitch", L"1");
        one.prepare(fresh);
        const auto lines = Traced([&] { Wake(one.number); });
        EXPECT_EQ(
            std::count_if(lines.begin(), lines.end(),
                          [](const auto& line) { return line.starts_with("[WmiEventManager][waitForWmiEvent][is"); }),
            one.gates)
            << one.name;
        EXPECT_EQ(fresh.stored(), one.stored) << one.name;
        EXPECT_EQ(Pending(), one.pending) << one.name;
        if (*one.stored != '\0') {
            ExpectEventLog(
                {one.number == 154 ? " [WmiEventManager] WMI 1 ( DGPU )" : " [WmiEventManager] WMI 2 ( connector )"});
            EXPECT_EQ(fresh.row("W", "SELECT freq FROM UserBehavior"), one.number == 154 ? "23" : "24");
        } else if (std::string(one.name) == "no number") {
            ExpectEventLog({"waitForWmiEvent ended early: invalid stoi argument"});
        } else {
            ExpectEventLog({});
        }
    }
}

TEST_F(WmiEvents, LeaveTheirNumberInTheRegistryOnlyIfItIsOneOfTheTwo) {
    const platform::EventSubscription subscription(true, L"ROOT\\WMI", L"SELECT * FROM ZorvQelWmiEvent",
                                                   std::make_shared<EventSink>(154, 155));
    ASSERT_EQ(subscription.status, 0);
    SetSession(4, 1);
    StartTrace();
    WriteRegDword(kLocalMachine, kProductKey, kPendingEvent, 0);
    for (const auto& [number, pending] : {std::pair{"153", L"0"}, {"155", L"155"}, {"156", L"155"}, {"154", L"154"}}) {
        EXPECT_EQ(run_zorvctl(std::string("event wmi ") + number).code, 0);
        const std::string last = std::string("[WmiEventManager][EventSink] Indicate : EventID") + number;
        for (int tries = 0; tries < 5000 && (TraceLines().empty() || TraceLines().back() != last); ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        EXPECT_EQ(TraceLines().back(), last);
        EXPECT_EQ(Pending(), pending) << number;
    }
    StopTrace();
}

TEST_F(WmiEvents, EndAReceiverForGoodAtTheThirdSetUpThatFails) {
    platform::fail_step(platform::EventStep::connect, -5);
    platform::set_clock({0, 0.001});
    std::vector<std::string> expected;
    for (const char* words :
         {"== 1 start sleep", "== 1 end sleep", "== 1 start sleep", "== 1 end sleep", "trycount == 3 break"}) {
        if (std::string(words) != "== 1 end sleep") {
            expected.emplace_back(
                " [WmiEventManager] Set WMI Event Receiver fail ConnectServer failed:. Error code = -5");
            expected.emplace_back("[WmiEventManager] Set WMI Event Receiver fail : Step4");
        }
        expected.push_back(std::string("setWmiEventReceiver ") + words);
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Traced([] { WmiEventManager().initWmiEventReceiver(true); }), expected);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(180)) << "60 s, then 120 s";
    ExpectEventLog({"setWmiEventReceiver trycount == 3"});
}

}  // namespace
}  // namespace zorvalis
