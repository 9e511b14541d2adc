// The receiver of hardware events on the stand-in machine: its gates, its cycle, its end.
#include "events/wmi_event_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "common/json.h"
#include "common/registry.h"
#include "platform/clock.h"
#include "platform/linux/line_client.h"
#include "platform/linux/step_failure.h"
#include "platform/machine.h"
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

    // Runs `wait` on a thread and `wake` until that has ended: when exactly it begins to listen cannot be seen.
    template <class Wait, class Wake>
    static void Meet(Wait wait, Wake wake) {
        std::atomic<bool> ended{false};
        std::thread waiting([&] {
            wait();
            ended = true;
        });
        while (!ended) {
            wake();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        waiting.join();
    }

    // The wait begins with a 0; then the number comes, and any other change wakes it.
    static void Wake(std::uint32_t number) {
        bool sent = false;
        Meet(
            [] {
                EventSink sink(154, 155);
                WmiEventManager().waitForWmiEvent(sink);
            },
            [&] {
                if (sent) {
                    Poke();
                } else if (Pending() == L"0") {
                    sent = WriteRegDword(kLocalMachine, kProductKey, kPendingEvent, number);
                }
            });
    }

    static void Poke() { SetValue(L"Other", L"any"); }

    static void Send(const std::string& event) {
        platform::LineClient client;
        if (client.open("run/events", 1)) {
            client.send(event);
        }
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
        void (*prepare)(Notebook&) = [](Notebook&) {};
    };
    const std::vector<Case> cases = {
        {"graphics", 154, kRows, L"0"},
        {"connector", 155, kRows, L"0"},
        {"another number", 153, "", L"0"},
        {"switched off", 154, "", L"154", [](Notebook&) { SetValue(L"MainSwitch", L"0"); }},
        {"never asked", 154, "", L"154", [](Notebook&) { RemoveValue(L"MainSwitch"); }},
        {"neither on nor off", 154, "", L"154", [](Notebook&) { SetValue(L"MainSwitch", L"2"); }},
        {"over", 154, "", L"0", [](Notebook& it) { it.change_setting(R"({"totalCollectTime": "0"})"); }},
        {"no number", 154, "", L"0", [](Notebook& it) { it.change_setting(R"({"totalCollectTime": "ever"})"); }},
        {"not today", 154, "", L"0",
         [](Notebook&) { SetValue(L"lastDojobTime", std::to_wstring(platform::now_seconds() - 90000)); }},
    };
    for (const Case& one : cases) {
        Notebook fresh;
        SetValue(L"MainSwitch", L"1");
        one.prepare(fresh);
        Wake(one.number);
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

TEST_F(WmiEvents, EndAReceiverForGoodAtTheThirdSetUpThatFails) {
    platform::fail_step("connect", -5);
    platform::set_clock({0, 0.001});
    std::vector<std::string> expected;
    for (const char* words : {"== 1 start sleep", "== 1 end sleep", "== 1 start sleep", "== 1 end sleep",
                              "trycount == 3 break"}) {
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

TEST_F(WmiEvents, GoThroughTheSystemAndTheRegistryToTheRecords) {
    SetValue(L"MainSwitch", L"1");
    const auto receive = [](const char* event) {
        return Traced([&] {
            Meet([] { EXPECT_EQ(WmiEventManager().setWmiEventReceiver(true), 0); },
                 [&] {
                     Send(event);
                     Poke();
                 });
        });
    };
    auto lines = receive(R"({"EventID": 153, "Active": true})");
    // The first event may come before that is said.
    EXPECT_NE(std::find(lines.begin(), lines.end(), "[WmiEventManager] Set WMI Event Receiver OK"), lines.end());
    EXPECT_EQ(machine.stored(), "");
    for (int tries = 0; machine.stored().empty() && tries < 100; ++tries) {  // the wake-up may come before the event
        lines = receive(R"({"Active": true, "EventID": 155})");
    }
    EXPECT_EQ(machine.stored(), kRows);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "[WmiEventManager][EventSink] Indicate : EventID155"), lines.end());
}

}  // namespace
}  // namespace zorvalis
