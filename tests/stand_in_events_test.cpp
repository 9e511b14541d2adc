// The hardware events of the stand-in machine: run/events, and the subscriptions that they come to.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "platform/event_subscription.h"
#include "platform/linux/wide.h"
#include "platform/stand_in/machine_socket.h"
#include "support/machine.h"

namespace platform {
namespace {

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

struct Subscription : EventSubscription {
    explicit Subscription(const std::shared_ptr<EventReceiver>& receiver)
        : EventSubscription(true, L"ROOT\\WMI", L"SELECT * FROM ZorvQelWmiEvent", receiver) {
        EXPECT_EQ(status, 0);
    }
};

TEST(StandInEvents, ReachTheReceiverOfTheCurrentSubscriptionOnly) {
    const TestMachine machine;
    EXPECT_EQ(run_zorvctl("event wmi 1").code, 1) << "nobody listens";
    const auto first = std::make_shared<Receiver>(), second = std::make_shared<Receiver>();
    {
        const Subscription subscription(first);
        EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 154, \"Active\": true}\n{\"EventID\": 155}"));
    }
    EXPECT_EQ(first->Wait(3), (std::vector<std::string>{"Active=? EventID=154", "EventID=155", "status 0"}));
    EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 156}\n"));
    {
        const Subscription other(second);
        EXPECT_EQ(run_zorvctl("event wmi -3").code, 0);
        second->Wait(1);  // zorvctl does not
    }
    EXPECT_TRUE(send_to_machine("events", "{\"EventID\": 158}\n"));
    EXPECT_EQ(second->Wait(2), (std::vector<std::string>{"EventID=-3", "status 0"}));
    EXPECT_EQ(first->Wait(3).size(), 3U);
}

TEST(StandInEvents, MayBeUnderWayWhileTheirSubscriptionEnds) {
    const TestMachine machine;
    auto receiver = std::make_shared<Receiver>();
    const std::weak_ptr<Receiver> alive = receiver;
    {
        const Subscription subscription(receiver);
        receiver->Hold(true);
        const Descriptor client = connect_to("run/events", 0);
        ::send(client.get(), "{\"EventID\": 154}\n{\"EventID\": 155}\n", 34, MSG_NOSIGNAL);
        receiver->Wait(1);
    }
    receiver->Hold(false);
    EXPECT_EQ(receiver->Wait(2), (std::vector<std::string>{"EventID=154", "status 0"}));
    receiver.reset();
    while (!alive.expired()) {  // the system's thread lets go of it soon
        ::usleep(100);
    }
}

}  // namespace
}  // namespace platform
