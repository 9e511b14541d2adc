// The stand-in machine's service manager: its protocol, its order, its errors, and clients that mean no good.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "common/json.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/event_provider.h"
#include "platform/linux/line_client.h"
#include "platform/linux/service_control.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "platform/service_manager.h"
#include "support/fake_service.h"
#include "support/machine.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr char kLid[] =
    R"({"control": 13, "event": 32787, "setting": "BA3E0F4D-b817-4094-a2d1-d56379e6a0f3", "data": )";
constexpr char kStatus[] = R"({"status": true})";
constexpr char kInterrogate[] = R"({"control": 4})";
constexpr char kHold[] = R"({"control": 128})";

using Notes = std::vector<std::string>;

// 0 for what succeeded.
std::uint32_t error_of(bool done) {
    return done ? 0 : last_error();
}

TEST(StandInService, IsRefusedWhenNoManagerStartedIt) {
    const TestMachine machine;
    for (const char* started : {"", "Another"}) {
        ::setenv(kServiceVariable, started, 1);
        EXPECT_EQ(error_of(run_service(FakeService::kName, nullptr)), 1063U);
        EXPECT_EQ(std::getenv(kServiceVariable), nullptr);
    }
    EXPECT_EQ(register_service_handler(FakeService::kName, nullptr, nullptr), 0);
    EXPECT_EQ(last_error(), 1083U);
    EXPECT_FALSE(fs::exists(machine_folder() + "/run"));
}

TEST(StandInService, DeliversOneControlAfterTheOtherWhileTheStatusIsTold) {
    const TestMachine machine;
    FakeService service;
    service.wait_for_state(4);
    LineClient first, second, third;
    std::string answer;
    ASSERT_TRUE(first.open(kControlSocket, 0) && second.open(kControlSocket, 0) && third.open(kControlSocket, 0));
    // A status that is asked for behind a control is answered behind it.
    ASSERT_TRUE(first.send(kHold + std::string("\n") + kStatus));
    service.wait_for_notes(1);
    ASSERT_TRUE(second.send(R"({"control": 129})"));
    EXPECT_NE(ask(kStatus).find("\"state\":4"), std::string::npos);
    {
        LineClient gone;
        ASSERT_TRUE(gone.open(kControlSocket, 0) && gone.send(kInterrogate));
    }
    ASSERT_TRUE(third.send(R"({"control": 15})"));
    ask(kStatus);
    EXPECT_EQ(service.notes(), Notes{"128 0"});
    service.let_go();
    ASSERT_TRUE(first.receive(answer));
    EXPECT_EQ(answer, R"({"result":0})");
    ASSERT_TRUE(first.receive(answer));
    EXPECT_NE(answer.find("\"state\":"), std::string::npos);
    ASSERT_TRUE(second.receive(answer));
    EXPECT_EQ(answer, R"({"result":7})");
    ASSERT_TRUE(third.receive(answer));
    EXPECT_EQ(answer, R"({"result":0})");
    service.join();
    EXPECT_EQ(reported_states(), "2 4 1");
}

TEST(StandInService, TellsClientsThatTalkNonsenseWhatIsWrong) {
    const TestMachine machine;
    FakeService service;
    service.wait_for_state(4);
    for (const char* line :
         {"", "garbage", "[]", "7", "{", "{}", "\xFF\xFE", R"({"status": 1})", R"({"status": true, "control": 4})",
          R"({"control": "4"})", R"({"control": -1})", R"({"control": 4294967296})", R"({"control": 4.0})",
          R"({"control": 4, "evnt": 1})", R"({"control": 13, "event": "x"})",
          R"({"control": 13, "event": 32787, "setting": "ba3e0f4d", "data": 1})",
          R"({"control": 13, "event": 32787, "setting": "ba3e0f4d-b817-4094-a2d1-d56379e6a0f3"})",
          R"({"control": 4, "setting": "ba3e0f4d-b817-4094-a2d1-d56379e6a0f3", "data": 1})",
          R"({"control": 13, "event": 32787, "setting": "00000000-b817-4094-a2d1-d56379e6a0f3", "data": 1})"}) {
        EXPECT_EQ(ask(line).find(R"({"error":")"), 0U) << line;
    }
    LineClient chatty;
    std::string answer;
    ASSERT_TRUE(chatty.open(kControlSocket, 0));
    chatty.send(std::string(65537, ' '));
    EXPECT_TRUE(chatty.receive(answer));
    EXPECT_NE(answer.find("65536"), std::string::npos);
    EXPECT_FALSE(chatty.receive(answer));
    EXPECT_EQ(service.notes(), Notes{});
}

int connect_raw() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (machine_folder() + "/run/control").copy(address.sun_path, sizeof address.sun_path - 1);
    const int client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return client;
}

TEST(StandInService, IsHeldUpByNoClientThatHangs) {
    const TestMachine machine;
    FakeService service;
    service.wait_for_state(4);
    // One that never reads, one that stops in the middle of a line, and more than are kept.
    const int deaf = connect_raw();
    const std::string flood(65536, '\n');
    while (::send(deaf, flood.data(), flood.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    }
    const int half = connect_raw();
    ::send(half, kInterrogate, 5, 0);
    std::vector<int> crowd;
    for (int i = 0; i < 300; ++i) {
        crowd.push_back(connect_raw());
        if (i % 100 == 0) {
            EXPECT_NE(ask(kStatus), "");
        }
    }
    EXPECT_EQ(ask(kInterrogate), R"({"result":0})");
    EXPECT_EQ(ask(R"({"control": 1})"), R"({"result":0})");
    service.join();
    for (const int client : crowd) {
        ::close(client);
    }
    ::close(half);
    ::close(deaf);
}

TEST(StandInService, TakesALastLineWithoutItsEnd) {
    const TestMachine machine;
    FakeService service;
    service.wait_for_state(4);
    const int client = connect_raw();
    ::send(client, kInterrogate, sizeof kInterrogate - 1, 0);
    ::shutdown(client, SHUT_WR);
    char answer[64];
    EXPECT_EQ(std::string(answer, static_cast<std::size_t>(::recv(client, answer, sizeof answer, 0))),
              "{\"result\":0}\n");
    EXPECT_EQ(::recv(client, answer, sizeof answer, 0), 0);
    ::close(client);
}

TEST(StandInService, TellsAPowerSettingFromItsRegistrationOn) {
    const TestMachine machine;
    write_text(machine_folder() + "/power.json", R"({"lid": 1, "ac": 0, "display": "on", "fan": 3})");
    FakeService service;
    service.wait_for_state(4);
    service.wait_for_notes(2);
    EXPECT_EQ(service.notes(), (Notes{"13 32787 186=1", "13 32787 93=0"}));
    const auto registrations = service.registrations();
    EXPECT_FALSE(unregister_power_setting(service.handle)) << "which no registration gave";
    EXPECT_EQ(ask(kLid + std::string("0}")), R"({"result":0})");
    EXPECT_TRUE(unregister_power_setting(registrations[0]));
    EXPECT_FALSE(unregister_power_setting(registrations[0]));
    EXPECT_NE(ask(kLid + std::string("1}")).find("not registered"), std::string::npos);
    EXPECT_EQ(service.notes().back(), "13 32787 186=0");
}

TEST(StandInService, TakesTheSignalsAsStopWhenItHasStarted) {
    const TestMachine machine;
    for (const int signal : {SIGTERM, SIGINT}) {
        fs::remove(machine_folder() + "/status.jsonl");
        FakeService service(true);
        service.wait_for_state(2);
        while (reported_states() != "2") {
            std::this_thread::yield();
        }
        EXPECT_EQ(ask(R"({"control": 1})"), R"({"result":1061})");
        ::kill(::getpid(), signal);
        EXPECT_NE(ask(kStatus).find("\"state\":2"), std::string::npos);
        service.let_go();
        service.join();
        EXPECT_EQ(reported_states(), "2 4 3 1");
    }
}

TEST(StandInService, HasTheMachineAloneAndReplacesADeadOnesSocket) {
    const TestMachine machine;
    fs::create_directory(machine_folder() + "/run");
    write_text(machine_folder() + "/run/control", "");
    FakeService service;
    service.wait_for_state(4);
    ::setenv(kServiceVariable, "Zorvalis", 1);
    EXPECT_EQ(error_of(run_service(FakeService::kName, nullptr)), 1056U);
    EXPECT_NE(ask(kStatus), "");
}

TEST(StandInService, EndsWhenItsMainNeverRegisters) {
    const TestMachine machine;
    ::setenv(kServiceVariable, "Zorvalis", 1);
    EXPECT_EQ(error_of(run_service(FakeService::kName, [](std::uint32_t, wchar_t**) {})), 1053U);
}

constexpr ServiceRegistration kRegistration = {FakeService::kName, L"Z\u00F6rvalis",  0x10,    2,        1,
                                               L"C:\\a b.exe",     L"RpcSs\0Other\0", nullptr, L"secret"};

TEST(StandInServiceManager, KeepsEveryFieldAndAnswersWithTheSystemsErrors) {
    const TestMachine machine;
    ServiceStatus status{};
    ServiceManager manager, poor;
    EXPECT_EQ(error_of(poor.create_service(kRegistration, 4)), 6U);
    ASSERT_TRUE(manager.open(3) && poor.open(1));
    EXPECT_EQ(error_of(manager.open_service(FakeService::kName, 4)), 1060U);
    EXPECT_EQ(error_of(poor.create_service(kRegistration, 4)), 5U);
    ServiceRegistration wrong = kRegistration;
    wrong.name = L"../x";
    EXPECT_EQ(error_of(manager.create_service(wrong, 4)), 123U);
    ASSERT_TRUE(manager.create_service(kRegistration, 4));
    const std::string folder = machine_folder() + "/services/";
    EXPECT_EQ(zorvalis::ParseJson(read_text(folder + "Zorvalis.json")),
              zorvalis::ParseJson("{\"name\": \"Zorvalis\", \"displayName\": \"Z\u00F6rvalis\", \"type\": 16,"
                                  R"("startType": 2, "errorControl": 1, "path": "C:\\a b.exe",)"
                                  R"("dependencies": ["RpcSs", "Other"], "account": "LocalSystem"})"));
    EXPECT_EQ(error_of(manager.create_service(kRegistration, 4)), 1073U);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);

    ASSERT_TRUE(manager.query_service(status));
    EXPECT_EQ(status.state, 1U);
    EXPECT_EQ(status.exit_code, 1077U);
    EXPECT_EQ(error_of(manager.control_service(1, status)), 5U);
    EXPECT_EQ(error_of(manager.delete_service()), 5U);
    ASSERT_TRUE(manager.open_service(FakeService::kName, 0x10024));
    EXPECT_EQ(error_of(manager.control_service(15, status)), 87U);
    EXPECT_EQ(error_of(manager.control_service(1, status)), 1062U);
    ASSERT_TRUE(manager.delete_service());
    EXPECT_EQ(error_of(manager.delete_service()), 1072U);
    EXPECT_TRUE(fs::is_empty(folder));
}

TEST(StandInServiceManager, StopsAndQueriesTheRunningService) {
    const TestMachine machine;
    ServiceStatus status{};
    ServiceManager manager;
    ASSERT_TRUE(manager.open(3) && manager.create_service(kRegistration, 0x1F01FF));
    FakeService service(true);
    service.wait_for_state(2);
    EXPECT_EQ(error_of(manager.control_service(1, status)), 1061U);
    service.let_go();
    service.wait_for_state(4);
    EXPECT_EQ(error_of(manager.control_service(2, status)), 1052U);
    EXPECT_EQ(error_of(manager.control_service(FakeService::kSeven, status)), 7U);
    ASSERT_TRUE(manager.query_service(status));
    EXPECT_EQ(status.state, 4U);
    EXPECT_EQ(status.accepted, 449U);
    ASSERT_TRUE(manager.control_service(1, status));
    EXPECT_EQ(status.state, 1U);
    service.join();
    EXPECT_FALSE(set_service_status(service.handle, {0x10, 4, 0, 0, 0, 0, 0})) << "it has said that it is stopped";
    ASSERT_TRUE(manager.query_service(status));
    EXPECT_EQ(status.state, 1U);
    EXPECT_EQ(status.exit_code, 0U);
    write_text(machine_folder() + "/status.jsonl", "{\"state\": 4}\n");
    ASSERT_TRUE(manager.query_service(status));
    EXPECT_EQ(status.exit_code, 1067U);
}

TEST(StandInEventProvider, KeepsTextsWhileItIsRegistered) {
    const TestMachine machine;
    const std::string log = machine_folder() + "/provider.jsonl";
    std::uint64_t first = 0, second = 0;
    write_event_text(first, 2, 0, L"nobody's");
    ASSERT_EQ(register_event_provider({}, first) | register_event_provider({}, second), 0U);
    write_event_text(first, 2, 0, L"gr\u00FC\u00DFe");
    unregister_event_provider(first);
    write_event_text(first, 2, 0, L"too late");
    write_event_text(second, 4, 0, L"other");
    unregister_event_provider(second);
    const std::string text = read_text(log);
    const auto entry = zorvalis::ParseJson(text.substr(0, text.find('\n')));
    EXPECT_TRUE(entry["text"] == "gr\u00FC\u00DFe" && entry["level"] == 2 && entry["time"].is_number()) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
    fs::remove(log);
    fs::create_directory(log);
    EXPECT_NE(register_event_provider({}, first), 0U);
}

TEST(StandInRegistry, LetsAWatchThatCannotBeArmedWaitASecond) {
    const TestMachine machine;
    set_clock({0, 0.05});
    RegistryWatch watch;
    EXPECT_FALSE(watch.arm(RegistryRoot::local_machine, L"SOFTWARE\\Absent"));
    const auto before = std::chrono::steady_clock::now();
    watch.wait();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
}

}  // namespace
}  // namespace platform
