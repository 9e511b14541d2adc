// Clients of the built executable: they call it from this process and from others, through the endpoint that it has.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <future>
#include <semaphore>

#include "platform/windows/handles.h"
#include "support/import_hook.h"
#include "windows/double/rpc.h"
#include "windows/held_context.h"
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

// What came back, "Text ZX 0 1, ".
struct Taken {
    std::string words;
    Callbacks callbacks = {
        [this](std::int64_t result, std::int64_t cookie) { Add("TestData", std::to_string(result), -1, cookie); },
        [this](const std::string& result, std::int32_t function, std::int64_t cookie) {
            Add("Text", result, function, cookie);
        },
        [this](bool result, std::int32_t function, std::int64_t cookie) {
            Add("Flag", std::to_string(result), function, cookie);
        },
        [this](std::int32_t result, std::int32_t function, std::int64_t cookie) {
            Add("Integer", std::to_string(result), function, cookie);
        }};

private:
    void Add(const char* kind, const std::string& result, std::int32_t function, std::int64_t cookie) {
        words +=
            std::string(kind) + " " + result + " " + std::to_string(function) + " " + std::to_string(cookie) + ", ";
    }
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

constexpr auto kPatience = std::chrono::seconds(20);
constexpr char kVersionCall[] = R"({"function":9,"version":1})";
constexpr char kVersionAnswer[] = R"({"function":9,"parameter":"{\"p1\":\"2.0.6.0\"}","status":"Success","version":1})";

TEST_F(ServedClients, GetAnswersAndCallbacksOfEveryProcedure) {
    Start();
    const CallbackEndpoint endpoint;
    Taken taken;
    Client client(taken.callbacks);
    client.GetModelName(INT64_MIN);
    client.GetSerialNumber(2);
    client.GetFamilyName(3);
    client.GetChassisTypes(4);
    client.GetProductName(5);
    client.GetBatteryHealthMode(6);
    client.GetQuietFanMode(7);
    client.GetVersionString(8);
    client.GetMainSwitchByUser(9);
    client.SetBatteryHealth(60, 10);
    client.SetQuietFan(true, 11);
    client.SetMainSwitchByUser(false, 12);
    client.SetAppFolder("C:\\\u00e4", 13);
    client.GetTestDataFunc(41, 14);
    EXPECT_EQ(taken.words,
              "Text ZX \u00e4 0 -9223372036854775808, Text SN 07 1 2, Text  2 3, Text Notebook 12 4, Text  13 5, "
              "Integer 80 3 6, Integer 1 4 7, Text 2.0.6.0 9 8, Flag 1 11 9, Integer 60 6 10, Flag 1 7 11, "
              "Flag 1 10 12, TestData 42 -1 14, ");
    taken.words.clear();
    client.GetSystemInfoData(15);
    EXPECT_TRUE(taken.words.starts_with("Text {\"bios\":")) << taken.words;
    EXPECT_EQ(client.GetUUID(), "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(client.GetUUID(36), "");
    EXPECT_TRUE(client.SetMyZorvPP("J\u00fcrgen", "app", "1", "2026-11-12 09:08:07.006", true));
    EXPECT_FALSE(client.SetMyZorvPP("me", "app", "1", "2026-11-12 09:08:07.006", false));
    EXPECT_EQ(read_text(machine.bin_folder() + "ChkReg.log"),
              "00112233-4455-6677-8899-aabbccddeeff J<fc>rgen app 1 1 2026 11 0 12 9 8 7 6\n");
    EXPECT_NE(read_text(machine.bin_folder() + "hardware.json").find("\"C:\\\\\u00e4\""), std::string::npos);
    const auto size = static_cast<std::int32_t>(std::strlen(kVersionAnswer));
    EXPECT_EQ(client.BigDataServiceCall(kVersionCall, size), "") << "no room for the terminator is no room";
    EXPECT_EQ(client.BigDataServiceCall(kVersionCall, size + 1), kVersionAnswer);
    EXPECT_EQ(client.BigDataServiceCall(kVersionCall + std::string(1 << 20, ' '), 1 << 20), kVersionAnswer);
}

TEST_F(ServedClients, WaitForAServiceThatStarts) {
    static std::counting_semaphore<> tries(0);
    static const auto truth = IMPORTED(RpcBindingFromStringBindingW);
    HOOK(RpcBindingFromStringBindingW, [](RPC_WSTR text, RPC_BINDING_HANDLE* binding) -> RPC_STATUS {
        tries.release();
        return truth(text, binding);
    });
    auto identity = std::async(std::launch::async, [] {
        return Client({}, zorvalis_client::Options{"", 3 * kPatience, {}}).GetUUID();
    });
    EXPECT_TRUE(tries.try_acquire_for(kPatience) && tries.try_acquire_for(kPatience));
    Start();
    EXPECT_EQ(identity.get(), "00112233-4455-6677-8899-aabbccddeeff");
}

// Without an endpoint for callbacks they are refused, as those to a client that has died. Behind the other tests, since
// after a fault Wine hands this process's next clients a connection to the service that has ended.
TEST_F(ServedClients, DoNotHearOfAFailedCallbackOrOfAnothersDeathOrFault) {
    Start();
    Taken taken;
    Client client(taken.callbacks);
    client.GetModelName(1);
    client.GetVersionString(2);
    EXPECT_EQ(taken.words, "");
    { const HeldContext dead(""); }
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(client.BigDataServiceCall(kVersionCall), kVersionAnswer);
    }
    EXPECT_EQ(client.BigDataServiceCall("no JSON"), "");
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
