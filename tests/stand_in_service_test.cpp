// The stand-in machine's service control: its order, and clients that mean no good.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/clock.h"
#include "platform/error.h"
#include "platform/machine.h"
#include "platform/service.h"
#include "platform/stand_in/line_client.h"
#include "platform/stand_in/machine_socket.h"
#include "platform/stand_in/service_control.h"
#include "support/fake_service.h"
#include "support/machine.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr char kStatus[] = R"({"status": true})";
constexpr char kInterrogate[] = R"({"control": 4})";
constexpr char kHold[] = R"({"control": 128})";

using Notes = std::vector<std::string>;

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
    EXPECT_EQ(service.notes(), Notes{"128"});
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

#ifndef __SANITIZE_THREAD__  // which lets no child start threads
TEST(StandInService, EndsWithItsProcessWhenItsMainDoesNotEnd) {
    const TestMachine machine;
    set_clock({0, 0.001});
    ::setenv(kServiceVariable, "Zorvalis", 1);
    const pid_t child = ::fork();
    if (child == 0) {
        run_service(L"Zorvalis", [](std::uint32_t, wchar_t**) {
            const auto handler = [](auto, auto, auto, auto) -> std::uint32_t { return 0; };
            set_service_status(register_service_handler(L"Zorvalis", handler, nullptr),
                               {16, kServiceStopped, 0, 0, 0, 0, 0});
            ::pause();
        });
        ::_exit(1);  // the service's object would go next
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
#endif

TEST(StandInService, IsHeldUpByNoClientThatHangs) {
    const TestMachine machine;
    FakeService service;
    service.wait_for_state(4);
    // One that never reads, one that stops in the middle of a line, and more than are kept.
    const Descriptor deaf = connect_to(kControlSocket, 0);
    const std::string flood(65536, '\n');
    while (::send(deaf.get(), flood.data(), flood.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    }
    const Descriptor half = connect_to(kControlSocket, 0);
    ::send(half.get(), kInterrogate, 5, 0);
    std::vector<Descriptor> crowd;
    for (int i = 0; i < 300; ++i) {
        crowd.push_back(connect_to(kControlSocket, 0));
        if (i % 100 == 0) {
            EXPECT_NE(ask(kStatus), "");
        }
    }
    EXPECT_EQ(ask(kInterrogate), R"({"result":0})");
    EXPECT_EQ(ask(R"({"control": 1})"), R"({"result":0})");
    service.join();
}

TEST(StandInService, HasTheMachineAloneAndReplacesADeadOnesSocket) {
    const TestMachine machine;
    fs::create_directory(machine_folder() + "/run");
    write_text(machine_folder() + "/run/control", "");
    FakeService service;
    service.wait_for_state(4);
    ::setenv(kServiceVariable, "Zorvalis", 1);
    EXPECT_FALSE(run_service(FakeService::kName, nullptr));
    EXPECT_EQ(last_error(), 1056U);
    EXPECT_NE(ask(kStatus), "");
}

}  // namespace
}  // namespace platform
