#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "client/device_modes.h"
#include "client/rpc_server.h"
#include "client/system_info.h"
#include "common/registry.h"
#include "jobs/job_manager.h"
#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/rpc_observer.h"
#include "support/notebook.h"
#include "support/traced.h"
#include "zorvalis_procedures.h"
#ifndef _WIN32
#include "platform/stand_in/step_failure.h"
#endif

namespace zorvalis {
namespace {

constexpr char kHardware[] = R"({"WMIGetModelName": "ZX-14", "WMIGetWiFiCardName": {"value": "WX", "flag0": "no"},
    "WMICheckBatteryHealthSupport": 1, "WMIGetBatteryHealth": 80, "WMICheckQuietFanSupport": 1, "WMIGetQuietFan": 1,
    "WMISetAppPath": ""})";

class ClientNotebook : public Notebook {
public:
    ClientNotebook() {
        change_hardware(kHardware);
        platform::set_callback_observer(&observer_);
    }
    ~ClientNotebook() { platform::set_callback_observer(nullptr); }

    void install_client_libraries() {
        for (const char* name : {"ChkReg.dll", "ChkReg.so", "zorvwmi.dll", "zorvwmi.so"}) {
            std::error_code missing;
            std::filesystem::copy_file(built(std::string("../tests/libraries/") + name), bin_folder() + name, missing);
        }
    }

    std::string Member(const char* name) const {
        const std::string own = read_text(platform::machine_folder() + "/hardware.json");
        const Json file = ParseJson(own.empty() ? read_text(bin_folder() + "hardware.json") : own);
        return file.contains(name) ? DumpJson(file[name]) : "";
    }

    std::string consents() const { return read_text(bin_folder() + "ChkReg.log"); }

    std::string callbacks, modesAtCallbacks;
    std::wstring switchAtCallback;

private:
    const platform::RpcCallbackObserver observer_ = [this](const platform::RpcCallback& callback) {
        const std::string kind = callback.procedure.substr(8);
        callbacks += (callbacks.empty() ? "" : ", ") + kind + " " + callback.result + " " +
                     std::to_string(callback.function) + " " + std::to_string(callback.cookie);
        modesAtCallbacks += Member("WMIGetBatteryHealth") + Member("WMIGetQuietFan");
        switchAtCallback = ::Value(L"MainSwitch");
    };
};

std::string Answer(const std::string& call) {
    return SystemInfoClass().BigDataServiceCallDispatcher(std::wstring(call.begin(), call.end()));
}

std::string Call(int function, const std::string& parameter = "") {
    return Answer("{\"function\":" + std::to_string(function) + ",\"version\":1" +
                  (parameter.empty() ? "" : ",\"parameter\":" + parameter) + "}");
}

std::string Value(int function, const std::string& text) {
    Json value, answer;
    value["p1"] = text;
    answer = {{"status", "Success"}, {"parameter", DumpJson(value)}, {"function", function}, {"version", 1}};
    return DumpJson(answer);
}

std::string Failure(const char* words, int function, int version) {
    return std::string(R"({"function":)") + std::to_string(function) + R"(,"parameter":")" + words +
           R"(","status":"Error","version":)" + std::to_string(version) + "}";
}

std::string Done(int function) {
    return R"({"function":)" + std::to_string(function) + R"(,"parameter":"","status":"Success","version":1})";
}

// sdk_package_test.py asks for every function's facts and refusals; these are what its machine does not have.
TEST(ServiceCall, AnswersWithWhatAMachineLacks) {
    ClientNotebook machine;
    EXPECT_EQ(Call(18), Value(18, "WX")) << "also when the library says that it failed";
    machine.change_hardware(R"({"WMIGetOSInfo": "\u0416", "WMIGetCPUInfo": "C\u00e9", "WMICheckBatteryHealthSupport": 0,
        "WMICheckQuietFanSupport": 0})");
    EXPECT_EQ(Call(5), Value(5, "")) << "what is no UTF-8 cannot be turned into ANSI";
    EXPECT_EQ(Call(3) + Call(4), Value(3, "-1") + Value(4, "-1"));
    for (const wchar_t* text : {L"2", L"", L"on"}) {
        ::SetValue(L"MainSwitch", text);
        EXPECT_EQ(Call(11), Value(11, "0"));
    }
    machine.remove_library();
    EXPECT_EQ(Call(0), Value(0, ""));
}

TEST(ServiceCall, RefusesWhatItDoesNotKnowInWords) {
    ClientNotebook machine;
    const std::tuple<const char*, const char*, int, int> cases[] = {
        {"{}", "Version unavailable", -1, -1},
        {R"({"function":1e300,"version":1})", "Function not supported", INT32_MIN, 1},
        {R"({"function":4294967297,"version":4294967298})", "Version not supported", 1, 2},
        {R"({"function":17,"version":1,"parameter":{"p5":"1"}})", "Set PP fail", 17, 1},
    };
    for (const auto& [call, words, function, version] : cases) {
        EXPECT_EQ(Answer(call), Failure(words, function, version)) << call;
    }
    EXPECT_EQ(machine.stored(), "");
    // The wrapped number is a function's, and a fraction is cut off.
    EXPECT_EQ(Answer(R"({"function":4294967296.7,"version":1})"), Failure("Function not supported", INT32_MIN, 1));
    EXPECT_EQ(Answer(R"({"function":-0.5,"version":1.9,"more":[1,2]})"), Value(0, "ZX-14"));
}

TEST(ServiceCall, HasNoAnswerToWhatIsNoJson) {
    ClientNotebook machine;
    const std::string cases[] = {
        "", "{", "{'function':9}", "{\"function\":9,\"version\":1}x", "\xEF\xBB", std::string(100000, '[')};
    for (const std::string& call : cases) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(Answer(call), "");
        EXPECT_TRUE(testing::internal::GetCapturedStdout().starts_with("message: ")) << call.substr(0, 20);
    }
    EXPECT_EQ(Answer("{\"a\":\"" + std::string(1 << 20, 'x') + "\"}"), Failure("Version unavailable", -1, -1));
    EXPECT_EQ(SystemInfoClass().BigDataServiceCallDispatcher(L"\"\xD800\""), Failure("Version unavailable", -1, -1));
    std::thread([] { EXPECT_EQ(Call(9), Value(9, "2.0.6.0")); }).join();  // the lock is free
}

TEST(ServiceCall, LeavesWithTheLockHeldWhenAMemberIsOfTheWrongType) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"function":"9","version":1})", "type must be number, but is string"},
        {R"({"function":true,"version":1})", "type must be number, but is boolean"},
        {R"({"function":9,"version":1e999})", "type must be number, but is null"},
        {R"({"function":8,"version":1,"parameter":[]})", "type must be object, but is array"},
        {R"({"function":17,"version":1,"parameter":{"p5":"99999999999"}})", "stoi argument out of range"},
    };
    ClientNotebook machine;
    for (const auto& [call, words] : cases) {
        try {
            Answer(call);
            ADD_FAILURE() << call;
        } catch (const std::exception& error) {
            EXPECT_STREQ(error.what(), words);
        }
        platform::set_clock({0, 0.001});
        std::thread([&] {
            EXPECT_EQ(Call(9), "") << "nobody else is served: " << call;
            const platform::RpcCallbackObserver none = [](const auto&) { ADD_FAILURE() << "a callback"; };
            platform::set_callback_observer(&none);
            SystemInfoClass().GetModelName(1);
        }).join();
        platform::set_clock({});
        EXPECT_EQ(Call(9), Value(9, "2.0.6.0")) << "its own thread is";
        JobLock().release();
    }
    std::thread([] { EXPECT_EQ(Call(9), Value(9, "2.0.6.0")); }).join();
}

TEST(ServiceCall, SetsTheSwitchAndRecordsModes) {
    ClientNotebook machine;
    EXPECT_EQ(Call(14, R"({"p1":"1"})"), Done(14));
    EXPECT_EQ(Call(14, R"({"p1":"on"})"), Done(14));
    EXPECT_EQ(Call(15, R"({"p1":"60"})"), Done(15));
    EXPECT_EQ(machine.stored(), "E UserBehavior 3");
    EXPECT_EQ(machine.row("E", "SELECT group_concat(freq) FROM UserBehavior"), "18,19,22");
    EXPECT_EQ(machine.Member("WMIGetQuietFan") + machine.Member("WMIGetBatteryHealth"), "180") << "the modes stay";
    Call(15, R"({"p1":"5"})");
    EXPECT_EQ(Call(10, R"({"p1":"on"})"), Done(10));
    EXPECT_EQ(::Value(L"MainSwitch"), L"0");
    EXPECT_EQ(Call(10, R"({"p1":"1"})"), Done(10));
    EXPECT_EQ(::Value(L"MainSwitch"), L"1");
    std::vector<std::string> log;
    for (const char* words :
         {" SetQuietFan ON data collect ", " SetQuietFan OFF data collect", " SetBatteryHealth 60 data collect",
          " SetBatteryHealth error data collect", " MainSwitch True", " MainSwitch True"}) {
        log.push_back("[ BigDataServiceCallDispatcher] <--- ");
        log.push_back(words);
        log.push_back("[ BigDataServiceCallDispatcher] ---> ");
    }
    ExpectEventLog(log);
}

TEST(ServiceCall, CopiesTheAnswerWholeOrNotAtAll) {
    ClientNotebook machine;
    const std::wstring answer = LR"({"function":9,"parameter":"{\"p1\":\"2.0.6.0\"}","status":"Success","version":1})";
    const auto size = static_cast<std::int32_t>(answer.size());
    for (const std::int32_t room : {size + 1, size, 1}) {
        std::vector<wchar_t> output(size + 2, L'#');
        SystemInfoClass().BigDataServiceCall(LR"({"function":9,"version":1})", output.data(), room);
        EXPECT_EQ(output.data(), room > size ? answer : L"");
        EXPECT_EQ(output.back(), L'#');
    }
    SystemInfoClass().BigDataServiceCall(L"{}", nullptr, 0);
}

TEST(ServiceCall, TracesItsSteps) {
    ClientNotebook machine;
    wchar_t output[100];
    const auto lines =
        Traced([&] { SystemInfoClass().BigDataServiceCall(LR"({"function":12,"version":1})", output, 100); });
    const std::vector<std::string> expected = {
        "[SystemInfoClass] <-- BigDataServiceCall",
        R"({"function":12,"version":1})",
        "[SystemInfoClass] <-- BigDataServiceCallDispatcher",
        R"( [BigDataServiceCallDispatcher] input string : {"function":12,"version":1})",
        " [BigDataServiceCallDispatcher] parse input ok",
        "[SystemInfoClass] BigDataServiceCallDispatcher -  version : 1 function : 12",
        "[SystemInfoClass] Func_GetChassisTypes : Notebook"};
    ASSERT_GE(lines.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + expected.size()), expected);
    EXPECT_EQ(lines.back(), "[SystemInfoClass] --> BigDataServiceCall");
    const auto failed = Traced([] { Answer(R"({"version":"\u00e4"})"); });
    EXPECT_EQ(failed.at(3),
              "[SystemInfoClass] parse json string : {\"version\":\"\xC3\xA4\"}, Parameter : function, Fail.");
}

TEST(DirectCall, SetsAModeAfterItsCallbackAndRecordsIt) {
    ClientNotebook machine;
    machine.change_hardware(R"({"WMIGetBatteryHealth": 80, "WMIGetQuietFan": 1, "WMISetAppPath": ""})");  // no support
    SystemInfoClass calls;
    calls.SetBatteryHealth(60, 1);
    calls.SetBatteryHealth((std::int64_t{1} << 32) + 70, 2);
    calls.SetQuietFan(false, 3);
    for (int function = 6; function <= 10; ++function) {
        calls.SystemInfoDispatcher(function, 0);  // Kept: it calls nobody back for these
    }
    EXPECT_EQ(machine.callbacks, "Integer 60 6 1, Integer 70 6 2, Flag 0 7 3");
    EXPECT_EQ(machine.modesAtCallbacks, "801601601");
    EXPECT_EQ(machine.Member("WMIGetBatteryHealth") + machine.Member("WMIGetQuietFan"), "600");
    EXPECT_EQ(machine.row("E", "SELECT group_concat(freq) FROM UserBehavior"), "22,19");
    machine.callbacks.clear();
    calls.SetMainSwitchByUser(false, 4);
    EXPECT_EQ(::Value(L"MainSwitch"), L"0");
    calls.SetAppFolder(L"E:\\", 5);
    EXPECT_EQ(machine.Member("WMISetAppPath"), "\"E:\\\\\"");
    EXPECT_EQ(machine.callbacks, "Flag 1 10 4") << "true: the job was done";
    EXPECT_EQ(machine.switchAtCallback, L"0") << "behind the job";
    ExpectEventLog({" SetBatteryHealth 60", " SetQuietFan OFF", " MainSwitch True"});
}

TEST(DeviceModes, AreSetByTheJobsForEveryArgument) {
    ClientNotebook machine;
    const std::pair<std::uint32_t, const char*> batteries[] = {
        {21, "80"}, {22, "60"}, {20, "100"}, {22, "60"}, {0, "100"}};
    for (const auto& [param, mode] : batteries) {
        EXPECT_EQ(JobManager::GetInstance().DoJob(L"jobSetBatteryHealth", param, 0), 0U);
        EXPECT_EQ(machine.Member("WMIGetBatteryHealth"), mode) << param;
    }
    const std::pair<std::uint32_t, const char*> fans[] = {{19, "0"}, {18, "1"}, {0, "0"}};
    for (const auto& [param, mode] : fans) {
        EXPECT_EQ(JobManager::GetInstance().DoJob(L"jobSetQuietFan", param, 0), 0U);
        EXPECT_EQ(machine.Member("WMIGetQuietFan"), mode) << param;
    }
    machine.change_hardware(R"({"WMICheckBatteryHealthSupport": 3, "WMIGetBatteryHealth": {"value": 77, "flag0": 5},
        "WMICheckQuietFanSupport": 0})");
    EXPECT_EQ(BatteryHealth().getBatteryHealth(0), 5);
    EXPECT_EQ(Traced([] {
                  BatteryHealth().restoreBatteryHealth(1);
                  QuietFan().restoreQuietFan(1);
              }),
              (std::vector<std::string>{"BatteryHealth::isSupport: 3", "BatteryHealth::restoreBatteryHealth: 77",
                                        "QuietFan::isSupport: 0"}));
}

TEST(Consent, IsHandedToTheLibraryThatRecordsIt) {
    ClientNotebook machine;
    const char* const parameter =
        R"({"p1":"J\u00fcrgen","p2":"App","p3":"1.2","p4":"2026-03-05 09:08:07.006","p5":"7"})";
    EXPECT_EQ(Call(17, parameter), Failure("Set PP fail", 17, 1)) << "there is no library";
    machine.install_client_libraries();
    EXPECT_EQ(Call(17, parameter), Done(17));
    const std::string recorded = "00112233-4455-6677-8899-aabbccddeeff J<fc>rgen App 1.2 1 2026 3 0 5 9 8 7 6\n";
    SystemInfoClass calls;
    const auto direct = [&](const wchar_t* account, bool agrees) {
        std::int32_t result = 5;
        calls.SetMyZorvPP(account, L"App", L"2", L"2026-3-5 1:2:3.4", agrees, &result);
        return result;
    };
    EXPECT_EQ(direct(L"x", false), 0);
    EXPECT_EQ(direct(nullptr, true), 0);
    EXPECT_EQ(machine.consents(), recorded) << "neither reaches the library";
    EXPECT_EQ(direct(L"\u0416", true), 1);
    write_text(machine.bin_folder() + "ChkReg.result", "2");
    EXPECT_EQ(direct(L"\u0416", true), 0);
    const std::string line = "00112233-4455-6677-8899-aabbccddeeff <416> App 2 1 2026 3 0 5 1 2 3 4\n";
    EXPECT_EQ(machine.consents(), recorded + line + line);
    EXPECT_EQ(machine.callbacks, "");
}

TEST(ServiceCall, ServesManyThreadsThatCross) {
    ClientNotebook machine;
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client) {
        clients.emplace_back([client] {
            for (int round = 0; round < 10; ++round) {
                const std::string on = client % 2 == 0 ? "1" : "0";
                EXPECT_EQ(Call(10, R"({"p1":")" + on + "\"}"), Done(10));
                EXPECT_EQ(Call(8, R"({"p1":")" + std::string(50 * client, 'x') + "\"}"), Done(8));
                EXPECT_EQ(Call(3), Value(3, "80"));
                SystemInfoClass().SetAppFolder(L"y", 0);  // outside the lock
                SystemInfoClass().SetMainSwitchByUser(client % 2 == 0, 0);
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_TRUE(::Value(L"MainSwitch") == L"0" || ::Value(L"MainSwitch") == L"1");
}

#ifndef _WIN32
TEST(ServiceCall, TellsThatTheSwitchCouldNotBeStored) {
    ClientNotebook machine;
    const std::string key = platform::machine_folder() + "/registry/HKEY_LOCAL_MACHINE/SOFTWARE/Zorv/Zorvcore/Zorvalis";
    std::filesystem::create_directories(key + "/MainSwitch");
    EXPECT_EQ(Call(10, R"({"p1":"1"})"), Failure("Set main switch reg fail.", 10, 1));
    SystemInfoClass().SetMainSwitchByUser(true, 3);
    EXPECT_EQ(machine.callbacks, "Flag 0 10 3");
    ExpectEventLog({"[ BigDataServiceCallDispatcher] <--- ", " MainSwitch False",
                    "[ BigDataServiceCallDispatcher] ---> ", " MainSwitch False"});
}

TEST(RpcServer, EndsItsStartAtTheFirstStepThatFails) {
    Notebook machine;
    for (const char* step : {"start_rpc_endpoint", "listen_for_rpc"}) {
        platform::fail_step(step, 1740);
        EXPECT_EQ(RpcServerStart(), 1740U) << step;
        RpcServerStop();
    }
    platform::fail_step("listen_for_rpc", 1713);
    EXPECT_EQ(RpcServerStart(), 0U) << "it listens already";
    platform::fail_step("", 0);
    RpcServerStop();
}
#endif

// A number is the place in the interface's description, and the applications in use have it compiled in.
TEST(RpcServer, KeepsTheNumbersOfItsProceduresAndCallbacks) {
    std::string names;
#define NAME(name, ...) names += #name " ";
    ZORVALIS_PROCEDURES(NAME)
    ZORVALIS_CALLBACKS(NAME)
#undef NAME
    EXPECT_EQ(names,
              "GetTestDataFunc GetModelName GetSerialNumber GetFamilyName GetChassisTypes GetProductName "
              "GetBatteryHealthMode GetQuietFanMode GetSystemInfoData GetVersionString SetMyZorvPP GetUUID "
              "SetBatteryHealth SetQuietFan SetAppFolder SetMainSwitchByUser GetMainSwitchByUser BigDataServiceCall "
              "CallbackTestData CallbackText CallbackFlag CallbackInteger ");
}

}  // namespace
}  // namespace zorvalis
