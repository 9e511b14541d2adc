// Clients of the built executable: they call it from this process and from others, through the endpoint that it has.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <sstream>

#include "platform/windows/handles.h"
#include "windows/double/rpc.h"
#include "windows/installed_executable.h"
#include "zorvalis_client.h"
#include "zorvalis_rpc.h"

namespace zorvalis {
namespace {

using zorvalis_client::Callbacks;
using zorvalis_client::Client;
using zorvalis_client::Error;

class ServedClients : public InstalledExecutable {
protected:
    ServedClients() {
        machine.change_hardware(
            R"({"WMIGetModelName": "ZX \u00e4", "WMIGetSN": "SN 07", "WMICheckBatteryHealthSupport": 1,
                                    "WMIGetBatteryHealth": 80, "WMICheckQuietFanSupport": 1,
                                    "WMIGetQuietFan": 1, "WMISetAppPath": ""})");
        for (const char* name : {"ChkReg.dll", "zorvwmi.dll"}) {
            std::filesystem::copy_file(built(std::string("../tests/libraries/") + name), machine.bin_folder() + name);
        }
    }

    void Start() {
        EXPECT_EQ(service.start(), 0U);
        doubles.until("trace RpcServerListen 1 1234", {"none"});
    }

    ServiceProcess service{path};
};

// Lets the clients of this process get callbacks under Wine. The client's description of the interface has its
// callbacks where a server's has its procedures.
class CallbackEndpoint {
public:
    CallbackEndpoint() {
        static_assert(sizeof(RPC_CLIENT_INTERFACE) == sizeof interface_);
        std::memcpy(&interface_, call_Zorvalis_v1_0_c_ifspec, sizeof interface_);
        wchar_t endpoint[64];
        std::swprintf(endpoint, 64, doubles::kCallbackEndpoint, ::GetCurrentProcessId());
        wchar_t protocol[] = L"ncalrpc";
        EXPECT_EQ(::RpcServerUseProtseqEpW(reinterpret_cast<RPC_WSTR>(protocol), 10,
                                           reinterpret_cast<RPC_WSTR>(endpoint), nullptr),
                  RPC_S_OK);
        EXPECT_EQ(::RpcServerRegisterIfEx(&interface_, nullptr, nullptr, RPC_IF_AUTOLISTEN, 1234, nullptr), RPC_S_OK);
        taker_.reset(::CreateEventW(nullptr, TRUE, FALSE, endpoint));
    }
    ~CallbackEndpoint() { ::RpcServerUnregisterIf(&interface_, nullptr, TRUE); }

private:
    RPC_SERVER_INTERFACE interface_{};
    platform::OwnedHandle taker_;
};

constexpr char kVersionCall[] = R"({"function":9,"version":1})";
constexpr char kVersionAnswer[] = R"({"function":9,"parameter":"{\"p1\":\"2.0.6.0\"}","status":"Success","version":1})";

// Of every kind; sdk_package_test.py makes all calls, without the callbacks, which Wine does not make.
TEST_F(ServedClients, GetAnswersAndCallbacks) {
    Start();
    const CallbackEndpoint endpoint;
    std::ostringstream taken;
    const auto take = [&taken](const auto&... each) { ((taken << each << " "), ...) << ", "; };
    Client client({take, take, take, take});
    client.GetModelName(INT64_MIN);
    client.GetBatteryHealthMode(6);
    client.SetQuietFan(true, 11);
    client.GetTestDataFunc(41, 14);
    EXPECT_EQ(taken.str(), "ZX \u00e4 0 -9223372036854775808 , 80 3 6 , 1 7 11 , 42 14 , ");
    EXPECT_TRUE(client.SetMyZorvPP("J\u00fcrgen", "app", "1", "2026-11-12 09:08:07.006", true));
    const auto size = static_cast<std::int32_t>(std::strlen(kVersionAnswer));
    EXPECT_EQ(client.BigDataServiceCall(kVersionCall, size), "") << "no room for the terminator is no room";
    EXPECT_EQ(client.BigDataServiceCall(kVersionCall + std::string(1 << 20, ' '), size + 1), kVersionAnswer);
}

// Without an endpoint for callbacks they are refused. Behind the other tests, since
// after a fault Wine hands this process's next clients a connection to the service that has ended.
TEST_F(ServedClients, DoNotHearOfAFailedCallbackOrOfAnothersFault) {
    Start();
    Callbacks callbacks;
    callbacks.text = [](const auto&...) { ADD_FAILURE() << "a callback"; };
    Client client(callbacks);
    client.GetModelName(1);
    for (const auto& [input, status] : {std::pair{R"({"function":"9","version":1})", RPC_S_CALL_FAILED},
                                        std::pair{"\xff", ERROR_NO_UNICODE_TRANSLATION}}) {
        try {
            client.BigDataServiceCall(input);
            ADD_FAILURE() << input;
        } catch (const Error& error) {
            EXPECT_EQ(error.status, status);
        }
    }
    EXPECT_EQ(Client().GetUUID(), "00112233-4455-6677-8899-aabbccddeeff") << "the next one, and without the job lock";
}

// For sdk_package_test.py, which runs applications of its own until it sends a line or goes away.
TEST_F(ServedClients, DISABLED_AreOtherPrograms) {
    machine.hardware(read_text(std::getenv("ZORV_SERVED_HARDWARE")));
    Start();
    std::printf("serving %s\n", machine.bin_folder().c_str());
    std::fflush(stdout);
    std::getchar();
}

TEST_F(ServedClients, AreNotServedAfterTheStop) {
    Start();
    EXPECT_EQ(service.control(SERVICE_CONTROL_STOP), 0U);
    EXPECT_THROW(Client{}, Error);
    EXPECT_EQ(service.end(), 0U);
}

}  // namespace
}  // namespace zorvalis
