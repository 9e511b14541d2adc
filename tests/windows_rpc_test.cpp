// The endpoint on Windows and the client that applications link, over the RPC runtime that Wine has. The procedures are
// the tests' own.
#include <windows.h>

#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <barrier>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/rpc_callback.h"
#include "platform/rpc_endpoint.h"
#include "platform/windows/rpc_guard.h"
#include "support/import_hook.h"
#include "windows/double/capability.h"
#include "windows/held_context.h"
#include "zorvalis_client.h"
#include "zorvalis_rpc.h"

namespace platform {
namespace {

using Calls = std::vector<std::string>;
using zorvalis_client::Client;
using zorvalis_client::Error;

// What reached the procedures, from any thread.
std::mutex mutex;
std::condition_variable changed;
Calls calls;
int openContexts = 0;
std::barrier<>* meeting = nullptr;

void note(const std::string& call) {
    const std::lock_guard lock(mutex);
    calls.push_back(call);
}

Calls taken() {
    const std::lock_guard lock(mutex);
    return std::exchange(calls, {});
}

std::string narrow(const wchar_t* text) {
    return {text, text + wcslen(text)};  // tests' own letters only
}

template <int number>
void getter(RpcContext context, std::int64_t cookie) {
    note("getter " + std::to_string(number) + " of " + *static_cast<std::string*>(context) + " " +
         std::to_string(cookie));
}

template <int number>
void switcher(RpcContext, std::uint8_t on, std::int64_t cookie) {
    note("switch " + std::to_string(number) + " " + std::to_string(on) + " " + std::to_string(cookie));
}

template <int number>
void number_taker(RpcContext, std::int64_t value, std::int64_t cookie) {
    note("number " + std::to_string(number) + " " + std::to_string(value) + " " + std::to_string(cookie));
}

void change_contexts(int count) {
    const std::lock_guard lock(mutex);
    openContexts += count;
    changed.notify_all();
}

void big_call(RpcContext, const wchar_t* input, wchar_t* output, std::int32_t size, std::int64_t cookie) {
    const std::wstring text = input;
    if (text == L"fail") {
        throw std::runtime_error("the procedure fails");
    }
    if (text == L"throw a number") {
        throw std::uint32_t{7};
    }
    if (text == L"meet") {
        meeting->arrive_and_wait();
    }
    EXPECT_TRUE(std::all_of(output, output + size, [](wchar_t c) { return c == 0; }));
    if (text.size() < static_cast<std::size_t>(size)) {
        text.copy(output, text.size());
    }
    note("big call " + std::to_string(text.size()) + " " + std::to_string(size) + " " + std::to_string(cookie));
}

constexpr RpcProcedures kProcedures = {
    []() -> RpcContext {
        change_contexts(1);
        return new std::string("a context");
    },
    [](RpcContext context) {
        delete static_cast<std::string*>(context);
        change_contexts(-1);
    },
    number_taker<2>,
    [](RpcContext, std::int64_t cookie) {
        callback_text("text", 0, cookie);
        note("still in the call");
    },
    getter<4>,
    getter<5>,
    getter<6>,
    getter<7>,
    getter<8>,
    getter<9>,
    getter<10>,
    getter<11>,
    [](RpcContext, const wchar_t* account, const wchar_t* app, const wchar_t* version, const wchar_t* time,
       std::uint8_t agree, std::int32_t* result, std::int64_t cookie) {
        note("consent " + narrow(account) + " " + narrow(app) + " " + narrow(version) + " " + narrow(time) + " " +
             std::to_string(agree) + " " + std::to_string(cookie));
        *result = agree;
    },
    [](RpcContext, wchar_t* output, std::int32_t size, std::int64_t cookie) {
        note("uuid " + std::to_string(size) + " " + std::to_string(cookie));
        std::wcsncpy(output, L"\u00e4-\u20ac", static_cast<std::size_t>(size));
    },
    number_taker<14>,
    switcher<15>,
    [](RpcContext, const wchar_t* path, std::int64_t cookie) {
        note("folder " + std::string(std::wstring(path) == L"C:\\\u00e4" ? "yes" : "no") + " " +
             std::to_string(cookie));
    },
    switcher<17>,
    getter<18>,
    big_call,
};

DWORD wantedSids = 1;

BOOL WINAPI derive(const wchar_t* name, PSID** groups, DWORD* group_count, PSID** sids, DWORD* count) {
    if (wantedSids == MAXDWORD) {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    EXPECT_STREQ(name, L"A.Package_name");
    return doubles::derive_capabilities(wantedSids, groups, group_count, sids, count);
}

const auto trueFind = IMPORTED(GetProcAddress);

FARPROC WINAPI find(HMODULE library, const char* name) {
    return doubles::is_derive(name) ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(derive))
                                    : trueFind(library, name);
}

// Up from the first test to the end of the process, as the service's own.
class Rpc : public testing::Test {
protected:
    static void SetUpTestSuite() {
        HOOK(GetProcAddress, find);
        RpcSecurity security;
        std::uint32_t count = 0;
        ASSERT_EQ(security.derive_capabilities(L"A.Package_name", count), 0U);
        ASSERT_EQ(security.allocate_everyone(), 0U);
        ASSERT_EQ(security.build_access_list(), 0U);
        ASSERT_EQ(security.set_descriptor(), 0U);
        const std::wstring name(endpoint.begin(), endpoint.end());
        ASSERT_EQ(use_rpc_endpoint(L"ncalrpc", 10, name.c_str(), security), 0U);
        ASSERT_EQ(register_rpc_interface(kProcedures, 33, 1234, security), 0U);
    }
    static void TearDownTestSuite() { EXPECT_EQ(unregister_rpc_interface(), 0U); }
    void TearDown() override { taken(); }

    static inline const std::string endpoint = "ZorvTest" + std::to_string(::GetCurrentProcessId());
};

template <class Call>
std::int32_t status_of(Call call) {
    try {
        call();
        return 0;
    } catch (const Error& error) {
        return error.status;
    }
}

TEST_F(Rpc, CarriesEachProcedureWithItsArguments) {
    constexpr std::int64_t kCookie = -1234567890123456789;
    Client client({}, endpoint);
    client.GetTestDataFunc(INT64_MIN, kCookie);
    client.GetSerialNumber(kCookie);
    client.GetFamilyName(kCookie);
    client.GetChassisTypes(kCookie);
    client.GetProductName(kCookie);
    client.GetBatteryHealthMode(kCookie);
    client.GetQuietFanMode(kCookie);
    client.GetSystemInfoData(kCookie);
    client.GetVersionString(kCookie);
    EXPECT_TRUE(client.SetMyZorvPP("me", "app", "1.0", "now", true));
    EXPECT_FALSE(client.SetMyZorvPP("", "", "", "", false));
    EXPECT_EQ(client.GetUUID(), "\u00e4-\u20ac");
    client.SetBatteryHealth(80, kCookie);
    client.SetQuietFan(true, kCookie);
    client.SetAppFolder("C:\\\u00e4", kCookie);
    client.SetMainSwitchByUser(false, kCookie);
    client.GetMainSwitchByUser(kCookie);
    EXPECT_EQ(client.BigDataServiceCall("\u00e4\u20ac\U0001F600", 5), "\u00e4\u20ac\U0001F600");
    EXPECT_EQ(client.BigDataServiceCall("too long", 8), "");
    const std::string cookie = " " + std::to_string(kCookie);
    EXPECT_EQ(
        taken(),
        (Calls{"number 2 -9223372036854775808" + cookie, "getter 4 of a context" + cookie,
               "getter 5 of a context" + cookie, "getter 6 of a context" + cookie, "getter 7 of a context" + cookie,
               "getter 8 of a context" + cookie, "getter 9 of a context" + cookie, "getter 10 of a context" + cookie,
               "getter 11 of a context" + cookie, "consent me app 1.0 now 1 0", "consent     0 0", "uuid 64 0",
               "number 14 80" + cookie, "switch 15 1" + cookie, "folder yes" + cookie, "switch 17 0" + cookie,
               "getter 18 of a context" + cookie, "big call 4 5 0", "big call 8 8 0"}));
    const std::string large(1 << 20, 'x');
    EXPECT_EQ(client.BigDataServiceCall(large, 1 << 20), "") << "no room for the terminator is no room";
    EXPECT_EQ(client.BigDataServiceCall(large.substr(1), 1 << 20), large.substr(1));
}

// Wine closes the connection of a fault, and the contexts of its client with it; Windows does not.
TEST_F(Rpc, TurnsAnErrorIntoAFaultAndServesOn) {
    for (const char* input : {"fail", "throw a number", "again"}) {
        Client client({}, endpoint);
        const std::int32_t expected = input == std::string("again") ? 0 : RPC_S_CALL_FAILED;
        EXPECT_EQ(status_of([&] { client.BigDataServiceCall(input); }), expected) << input;
        EXPECT_EQ(status_of([&] { client.BigDataServiceCall("\xff"); }), ERROR_NO_UNICODE_TRANSLATION);
    }
    EXPECT_EQ(status_of([] { Client({}, "ZorvNobody"); }), RPC_S_SERVER_UNAVAILABLE);
}

TEST_F(Rpc, RefusesANullContextAndAnImpossibleSize) {
    ClientContext none = nullptr;
    EXPECT_EQ(rpc_guarded([] { call_GetModelName(nullptr, 1); }), RPC_X_SS_IN_NULL_CONTEXT);
    EXPECT_EQ(rpc_guarded([&none] { call_RemoteClose(&none); }), RPC_X_SS_IN_NULL_CONTEXT);
    const std::pair<std::int32_t, std::int32_t> cases[] = {
        {0, RPC_S_INVALID_BOUND}, {(1 << 20) + 1, RPC_S_INVALID_BOUND}, {-1, RPC_S_SERVER_OUT_OF_MEMORY}};
    for (const auto& [size, refusal] : cases) {
        EXPECT_EQ(status_of([&] { Client({}, endpoint).BigDataServiceCall("in", size); }), refusal) << size;
        EXPECT_EQ(status_of([&] { Client({}, endpoint).GetUUID(size); }), refusal) << size;
    }
    EXPECT_EQ(taken(), Calls{});
}

// Wine runs the calls on one context in turn, whatever its flags say.
TEST_F(Rpc, RunsCallsOfSeveralClientsAtOnce) {
    constexpr int kCallers = 4;
    std::barrier<> callers(kCallers);
    meeting = &callers;
    std::vector<std::thread> threads;
    for (int i = 0; i < kCallers; ++i) {
        threads.emplace_back([] {
            Client client({}, endpoint);
            EXPECT_EQ(client.BigDataServiceCall("meet"), "meet");
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Rpc, ClosesTheContextsOfAClientThatDied) {
    {
        const Client client({}, endpoint);
        EXPECT_EQ(openContexts, 1);
        const HeldContext dead(endpoint);
        EXPECT_EQ(openContexts, 2);
    }
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [] { return openContexts == 0; }));
}

TEST_F(Rpc, GoesOnWhenACallbackCannotBeMade) {
    Client client({}, endpoint);
    client.GetModelName(1);
    callback_text("outside of a call", 0, 1);
    EXPECT_EQ(taken(), Calls{"still in the call"});
}

TEST(RpcCallback, GoesToTheObserverOfItsThread) {
    Calls seen;
    set_callback_observer([&seen](const RpcCallback& callback) {
        seen.push_back(callback.procedure + " " + callback.result + " " + std::to_string(callback.function) + " " +
                       std::to_string(callback.cookie));
    });
    callback_test_data(-5, 1);
    callback_text("text", 2, 3);
    callback_flag(1, 7, 4);
    callback_integer(-6, 3, 5);
    std::thread([] { callback_integer(1, 2, 3); }).join();
    set_callback_observer({});
    callback_integer(1, 2, 3);
    EXPECT_EQ(seen, (Calls{"CallbackTestData -5 -1 1", "CallbackText text 2 3", "CallbackFlag 1 7 4",
                           "CallbackInteger -6 3 5"}));
}

}  // namespace
}  // namespace platform
