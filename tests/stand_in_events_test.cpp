// The hardware events of the stand-in machine: run/events, and the subscriptions that they come to.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <map>
#include <mutex>

#include "platform/event_subscription.h"
#include "platform/linux/machine_file.h"
#include "platform/linux/step_failure.h"
#include "support/machine.h"

namespace platform {
namespace {

constexpr wchar_t kQuery[] = L"SELECT * FROM ZorvQelWmiEvent";

// Keeps what it is called with, as "name=number" for each property, and holds calls up while it is told to.
class Receiver : public EventReceiver {
public:
    void Indicate(const EventObject& object) override {
        std::vector<std::wstring> names;
        object.property_names(names);
        std::string text;
        for (const std::wstring& name : names) {
            std::int32_t number = 0;
            const bool sound = object.integer(name, number);
            text += (text.empty() ? "" : " ") + to_utf8(name) + "=" + (sound ? std::to_string(number) : "?");
        }
        Note(text);
    }
    void SetStatus(std::int32_t flags) override { Note("status " + std::to_string(flags)); }

    // All notes so far, once there are `count`.
    std::vector<std::string> Wait(std::size_t count) {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [&] { return notes_.size() >= count; });
        return notes_;
    }

    void Hold(bool held) {
        const std::lock_guard guard(mutex_);
        held_ = held;
        changed_.notify_all();
    }

private:
    void Note(const std::string& text) {
        std::unique_lock guard(mutex_);
        notes_.push_back(text);
        changed_.notify_all();
        changed_.wait(guard, [&] { return !held_; });
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> notes_;
    bool held_ = false;
};

EventSubscription::Status subscribe(EventSubscription& subscription, const std::shared_ptr<EventReceiver>& receiver) {
    for (const auto status : {subscription.enter(), subscription.create_locator(), subscription.connect(L"root\\wmi"),
                              subscription.set_blanket()}) {
        if (status < 0) {
            return status;
        }
    }
    subscription.create_stub(receiver);
    return subscription.start(L"WQL", kQuery);
}

// A socket at run/events: bound and listening, or connected there.
Descriptor events_socket(bool listens) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    machine_path("run/events").copy(address.sun_path, sizeof address.sun_path - 1);
    make_folders(machine_path("run"));
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    EXPECT_EQ(listens ? ::bind(socket.get(), name, sizeof address) + ::listen(socket.get(), 1)
                      : ::connect(socket.get(), name, sizeof address),
              0);
    return socket;
}

TEST(StandInEvents, ReachTheReceiverOfTheCurrentSubscriptionOnly) {
    const TestMachine machine;
    EXPECT_FALSE(send_to_machine("events", "{\"EventID\": 1}\n"));
    const auto first = std::make_shared<Receiver>(), second = std::make_shared<Receiver>();
    EventSubscription subscription;
    ASSERT_EQ(subscribe(subscription, first), 0);
    EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 154, \"Active\": true}\n{\"EventID\": 155}"));
    EXPECT_EQ(subscription.cancel(), 0);
    EXPECT_EQ(first->Wait(3), (std::vector<std::string>{"Active=? EventID=154", "EventID=155", "status 0"}));
    EXPECT_LT(subscription.cancel(), 0);
    EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 156}\n"));
    {
        EventSubscription other;
        ASSERT_EQ(subscribe(other, second), 0);
        EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 157}\n"));
    }
    EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 158}\n"));
    EXPECT_EQ(second->Wait(1), std::vector<std::string>{"EventID=157"}) << "without an end that was asked for";
    EXPECT_EQ(first->Wait(3).size(), 3U);
}

TEST(StandInEvents, HaveIntegersOf32Bits) {
    const TestMachine machine;
    const auto receiver = std::make_shared<Receiver>();
    EventSubscription subscription;
    ASSERT_EQ(subscribe(subscription, receiver), 0);
    const std::map<std::string, std::string> cases = {{"2147483647", "2147483647"},
                                                      {"-2147483648", "-2147483648"},
                                                      {"2147483648", "?"},
                                                      {"-2147483649", "?"},
                                                      {"18446744073709551615", "?"},
                                                      {"1e400", ""},
                                                      {"1.0", "?"},
                                                      {"true", "?"},
                                                      {"\"1\"", "?"},
                                                      {"null", "?"},
                                                      {"[1]", "?"},
                                                      {"\"\xFF\"", ""}};
    std::vector<std::string> expected;
    for (const auto& [value, number] : cases) {
        send_to_machine("events", "{\"\u00FC\": " + value + "}\n");
        if (!number.empty()) {
            expected.push_back("\u00FC=" + number);
        }
    }
    EXPECT_EQ(receiver->Wait(expected.size()), expected);
}

TEST(StandInEvents, AreNotHeldUpByHostileClients) {
    const TestMachine machine;
    const auto receiver = std::make_shared<Receiver>();
    EventSubscription subscription;
    ASSERT_EQ(subscribe(subscription, receiver), 0);
    std::vector<Descriptor> silent;
    for (int i = 0; i < 300; ++i) {
        silent.push_back(events_socket(false));
        ::send(silent.back().get(), "{\"EventID\"", static_cast<std::size_t>(i % 11), MSG_NOSIGNAL);
    }
    const std::string garbage[] = {"\n\n{]\n[1]\n7\nnull\n", std::string(100000, '{') + "\n", std::string(1 << 20, 'x'),
                                   std::string("\0{}\xFF\n", 5), "{\"EventID\": 1"};
    for (const std::string& text : garbage) {
        EXPECT_TRUE(send_to_machine("events", text));
    }
    std::string flood;
    for (int i = 0; i < 10000; ++i) {
        flood += "{\"EventID\": " + std::to_string(i) + "}\n";
    }
    EXPECT_TRUE(send_to_machine("events", flood));
    const auto notes = receiver->Wait(10000);
    ASSERT_EQ(notes.size(), 10000U);
    EXPECT_EQ(notes.front(), "EventID=0");
    EXPECT_EQ(notes.back(), "EventID=9999");
    ::send(silent.back().get(), ": 5}\n{\"EventID\": 6}\n", 20, MSG_NOSIGNAL);  // the newest was not cut off
    EXPECT_EQ(receiver->Wait(10001)[10000], "EventID=6");
}

TEST(StandInEvents, MayBeUnderWayWhileTheirSubscriptionEnds) {
    const TestMachine machine;
    auto receiver = std::make_shared<Receiver>();
    const std::weak_ptr<Receiver> alive = receiver;
    {
        EventSubscription subscription;
        ASSERT_EQ(subscribe(subscription, receiver), 0);
        receiver->Hold(true);
        const Descriptor client = events_socket(false);
        ::send(client.get(), "{\"EventID\": 154}\n{\"EventID\": 155}\n", 34, MSG_NOSIGNAL);
        receiver->Wait(1);
        EXPECT_EQ(subscription.cancel(), 0);
    }
    receiver->Hold(false);
    EXPECT_EQ(receiver->Wait(2), (std::vector<std::string>{"EventID=154", "status 0"}));
    receiver.reset();
    while (!alive.expired()) {  // the system's thread lets go of it soon
        ::usleep(100);
    }
}

TEST(StandInEvents, ReplaceTheSocketOfAProcessThatWasKilled) {
    const TestMachine machine;
    const auto receiver = std::make_shared<Receiver>();
    EventSubscription subscription;
    {
        const Descriptor living = events_socket(true);
        EXPECT_LT(subscribe(subscription, receiver), 0);
    }
    ASSERT_EQ(subscribe(subscription, receiver), 0);
    EXPECT_EQ(subscription.cancel(), 0);
    ASSERT_EQ(::unlink(machine_path("run/events").c_str()), 0);
    ASSERT_EQ(subscription.start(L"WQL", kQuery), 0) << "the socket is made again";
    EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 154}\n"));
    EXPECT_EQ(receiver->Wait(2)[1], "EventID=154");
}

TEST(StandInEvents, AnswerEachStepAsTheSystemDoes) {
    const TestMachine machine;
    const auto receiver = std::make_shared<Receiver>();
    for (const char* step : {"enter", "create_locator", "connect", "set_blanket", "start"}) {
        fail_step(step, -7);
        EventSubscription subscription;
        EXPECT_EQ(subscribe(subscription, receiver), -7) << step;
    }
    const auto is = [](EventSubscription::Status status, std::uint32_t number) {
        EXPECT_EQ(static_cast<std::uint32_t>(status), number);
    };
    fail_step("create_stub", -7);
    EventSubscription subscription;
    is(subscription.start(L"WQL", kQuery), 0x80004003);
    is(subscribe(subscription, receiver), 0x80041008);
    fail_step("", 0);
    is(subscription.connect(L"ROOT\\CIMV2"), 0x8004100E);
    is(subscription.start(L"SQL", kQuery), 0x80041018);
    is(subscription.start(L"WQL", L"every event"), 0x80041017);
    is(subscription.cancel(), 0x80041002);
    fail_step("cancel", -7);
    ASSERT_EQ(subscribe(subscription, receiver), 0);
    EXPECT_EQ(subscription.cancel(), -7);
    fail_step("integer", -7);
    send_to_machine("events", "{\"EventID\": 154}");
    fail_step("", 0);
    EXPECT_EQ(receiver->Wait(1), std::vector<std::string>{"EventID=?"});
}

}  // namespace
}  // namespace platform
