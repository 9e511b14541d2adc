// The endpoint on Windows: how the service opens it and for whom, and what it does with clients over the RPC runtime
// that Wine has. There the procedures are the tests' own.
#include <windows.h>

#include <gtest/gtest.h>

#include <psapi.h>
#include <sddl.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <future>
#include <semaphore>
#include <set>

#include "client/rpc_server.h"
#include "platform/rpc_endpoint.h"
#include "platform/windows/handles.h"
#include "platform/windows/rpc_security.h"
#include "rpc/guard.h"
#include "rpc/memory.h"
#include "sdk/session.h"
#include "support/machine.h"
#include "windows/double/capability.h"
#include "windows/recorded_calls.h"
#include "zorvalis_client.h"
#include "zorvalis_rpc.h"

// Not in this compiler's headers.
extern "C" __declspec(dllimport) RPC_STATUS RPC_ENTRY
    RpcServerRegisterIf3(RPC_IF_HANDLE, UUID*, RPC_MGR_EPV*, unsigned, unsigned, unsigned, RPC_IF_CALLBACK_FN*, void*);

namespace platform {
namespace {

using zorvalis_client::Callbacks;
using zorvalis_client::Client;
using zorvalis_client::Error;

// What the double gave out, and what came of it.
std::vector<std::string> freed;
std::vector<std::pair<void*, std::string>> given;
constexpr wchar_t kPackage[] = L"Zorv.Zorvinfo_k7rt2xw94hmpa";
DWORD wantedSids = 0;
DWORD deriveError = 0;
bool lacksFunction = false;

void note_free(void* memory, const char* how) {
    for (auto& [known, name] : given) {
        if (known == memory && memory != nullptr) {
            freed.push_back(how + name);
        }
    }
}

const auto trueFind = IMPORTED(GetProcAddress);
const auto trueLocalFree = IMPORTED(LocalFree);
const auto trueFreeSid = IMPORTED(FreeSid);
const auto trueSetEntries = IMPORTED(SetEntriesInAclW);
const auto trueAllocate = IMPORTED(VirtualAlloc);
const auto trueFromString = IMPORTED(RpcBindingFromStringBindingW);

BOOL WINAPI derive(const wchar_t* name, PSID** groups, DWORD* group_count, PSID** sids, DWORD* count) {
    EXPECT_STREQ(name, kPackage);
    if (deriveError != 0) {
        ::SetLastError(deriveError);
        return FALSE;
    }
    doubles::derive_capabilities(wantedSids, groups, group_count, sids, count);
    given = {{*groups, "groups"}, {(*groups)[0], "group 0"}, {(*groups)[1], "group 1"}, {*sids, "capabilities"}};
    for (DWORD i = 0; i < wantedSids; ++i) {
        given.emplace_back((*sids)[i], "capability " + std::to_string(i));
    }
    return TRUE;
}

FARPROC WINAPI find(HMODULE library, const char* name) {
    if (!doubles::is_derive(name)) {
        return trueFind(library, name);
    }
    return lacksFunction ? nullptr : reinterpret_cast<FARPROC>(reinterpret_cast<void*>(derive));
}

TEST(RpcSecurity, IsRefusedWithoutExactlyOneCapability) {
    HOOK(GetProcAddress, find);
    const auto start = [](std::uint32_t error, bool lacking, std::uint32_t wanted) {
        deriveError = error;
        lacksFunction = lacking;
        wantedSids = wanted;
        return zorvalis::RpcServerStart();
    };
    EXPECT_EQ(start(0, false, 0), 87U);
    EXPECT_EQ(start(0, false, 2), 87U);
    EXPECT_EQ(start(5, false, 0), 5U);
    EXPECT_EQ(start(0, true, 0), 127U);
    deriveError = 0;
    lacksFunction = false;
}

TEST(RpcSecurity, GrantsAllToEveryoneAndTheCapabilityAndFreesWhatItGot) {
    HOOK(GetProcAddress, find);
    HOOK(LocalFree, [](HLOCAL memory) -> HLOCAL {
        note_free(memory, "");
        return trueLocalFree(memory);
    });
    HOOK(FreeSid, [](PSID sid) -> void* {
        note_free(sid, "sid of ");
        return trueFreeSid(sid);
    });
    HOOK(SetEntriesInAclW, [](ULONG count, EXPLICIT_ACCESSW* entries, PACL old, PACL* list) -> DWORD {
        EXPECT_EQ(count, 2U);
        EXPECT_EQ(entries[0].Trustee.TrusteeType, TRUSTEE_IS_WELL_KNOWN_GROUP);
        EXPECT_EQ(entries[1].Trustee.TrusteeType, TRUSTEE_IS_UNKNOWN);
        EXPECT_EQ(entries[0].grfAccessMode, SET_ACCESS);
        EXPECT_EQ(entries[1].grfAccessMode, SET_ACCESS);
        given.emplace_back(entries[0].Trustee.ptstrName, "everyone");
        const DWORD status = trueSetEntries(count, entries, old, list);
        given.emplace_back(*list, "list");
        return status;
    });
    wantedSids = 1;
    {
        RpcSecurity security;
        ASSERT_EQ(security.set_up(kPackage), 0U);
        EXPECT_TRUE(freed.empty());
        wchar_t* text = nullptr;
        ASSERT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(security.descriptor(), SDDL_REVISION_1,
                                                                           DACL_SECURITY_INFORMATION, &text, nullptr));
        EXPECT_STREQ(text, L"D:(A;;GA;;;WD)(A;;GA;;;S-1-15-3-1024-1-2-3-4-5-6-7-8)");
        trueLocalFree(text);
    }
    EXPECT_EQ(freed.size(), 7U);
    EXPECT_EQ((std::set<std::string>(freed.begin(), freed.end())),
              (std::set<std::string>{"capabilities", "capability 0", "group 0", "group 1", "groups", "list",
                                     "sid of everyone"}));
}

TEST(RpcEndpoint, IsOpenedAndClosedStepByStep) {
    HOOK(GetProcAddress, find);
    static RPC_BINDING_VECTOR vector{7, {}};
    HOOK(RpcServerInqBindings, [](RPC_BINDING_VECTOR** bindings) -> RPC_STATUS {
        *bindings = &vector;
        calls.push_back("RpcServerInqBindings");
        return 0;
    });
    const ImportHook hooks[] = {FAKE(RpcServerUseProtseqEpW), FAKE(RpcServerRegisterIf3),  FAKE(RpcEpRegisterW),
                                FAKE(RpcServerListen),        FAKE(RpcServerUnregisterIf), FAKE(RpcEpUnregister),
                                FAKE(RpcBindingVectorFree)};
    wantedSids = 1;
    EXPECT_EQ(calls_of([] {
                  EXPECT_EQ(zorvalis::RpcServerStart(), 0U);
                  zorvalis::RpcServerStop();
              }),
              (Calls{"RpcServerUseProtseqEpW ncalrpc a ZorvHelpRpcEndpoint 40001",
                     "RpcServerRegisterIf3 60 null null 21 4d2 ffffffff null 40001", "RpcServerInqBindings",
                     "RpcEpRegisterW 60 7 null null", "RpcServerListen 1 4d2 0", "RpcServerUnregisterIf 60 null 0",
                     "RpcEpUnregister 60 7 null", "RpcBindingVectorFree *"}));
    for (const std::size_t step : {1, 2, 4, 5}) {
        failing = step;
        EXPECT_EQ(calls_of([] { EXPECT_EQ(zorvalis::RpcServerStart(), kFailure); }).size(), step);
    }
    failing = 0;
}

TEST(RpcMemory, IsZerosForAnyOutputAndTakesNothingWhereNobodyWrites) {
    for (const std::size_t size : {200U, 60000U, 0x10000U, 80000U, 1U << 21}) {
        auto* const block = static_cast<char*>(MIDL_user_allocate(size + 1));
        block[size] = 'x';
        std::fill_n(block, size <= 60000 ? size : 0, 'y');
        zorvalis_rpc::ClearBlock(block, size);
        PSAPI_WORKING_SET_EX_INFORMATION middle{block + size / 2, {}};
        EXPECT_TRUE(::K32QueryWorkingSetEx(::GetCurrentProcess(), &middle, sizeof middle));
        EXPECT_EQ(middle.VirtualAttributes.Valid != 0, size <= 60000) << size;
        EXPECT_EQ(std::count(block, block + size, '\0'), static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(block[size], 'x') << "what lies behind an output is the runtime's";
        MIDL_user_free(block);
    }
}

TEST(RpcGuard, TakesWhateverTheOtherEndRaisesButNotTheProcessorsOwn) {
    const auto raise = [](DWORD code) {
        return [code] { ::RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr); };
    };
    EXPECT_EQ(zorvalis_rpc::Guarded([] {}), 0U);
    for (const DWORD code :
         {DWORD{1702}, DWORD{0xC0000094}, DWORD{0xE06D7363}, DWORD{0x20474343}, DWORD{0xC00000FD}, DWORD{0x80000003}}) {
        EXPECT_EQ(zorvalis_rpc::Guarded(raise(code)), code);
    }
    static bool seen = false;
    auto* const before = ::SetUnhandledExceptionFilter([](EXCEPTION_POINTERS* exception) -> LONG {
        seen = exception->ExceptionRecord->ExceptionCode == EXCEPTION_BREAKPOINT;
        ++exception->ContextRecord->Rip;
        return EXCEPTION_CONTINUE_EXECUTION;
    });
    EXPECT_EQ(zorvalis_rpc::Guarded([] { asm volatile("int3"); }), 0U);
    ::SetUnhandledExceptionFilter(before);
    EXPECT_TRUE(seen);
}

template <class Call>
std::int32_t status_of(Call call) {
    try {
        call();
        return 0;
    } catch (const Error& error) {
        return error.status;
    }
}

// Wine knows neither of them: the first is ignored there, the second refused for want of an authentication.
TEST(RpcClient, IsIdentifiedOnlyAndExpectsLocalSystemAtTheServicesEndpoint) {
    static std::wstring name;
    static RPC_STATUS answer;
    static int asked;
    name.clear();
    HOOK(RpcBindingFromStringBindingW, [](RPC_WSTR text, RPC_BINDING_HANDLE* binding) -> RPC_STATUS {
        name = reinterpret_cast<wchar_t*>(text);
        return trueFromString(text, binding);
    });
    HOOK(
        RpcBindingSetAuthInfoExW,
        [](RPC_BINDING_HANDLE, RPC_WSTR principal, unsigned long level, unsigned long service, RPC_AUTH_IDENTITY_HANDLE,
           unsigned long, RPC_SECURITY_QOS* wanted) -> RPC_STATUS {
            const auto& qos = *reinterpret_cast<RPC_SECURITY_QOS_V3_W*>(wanted);
            EXPECT_TRUE(principal == nullptr && level == RPC_C_AUTHN_LEVEL_PKT_PRIVACY && service == RPC_C_AUTHN_WINNT);
            EXPECT_TRUE(qos.Version == 3 && qos.Capabilities == RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH &&
                        qos.ImpersonationType == RPC_C_IMP_LEVEL_IDENTIFY);
            EXPECT_TRUE(::IsWellKnownSid(qos.Sid, WinLocalSystemSid));
            ++asked;
            return answer;
        });
    const auto open = [](RPC_STATUS status, const char* endpoint) {
        asked = 0;
        answer = status;
        return status_of([&] { Client({}, endpoint); });
    };
    EXPECT_EQ(open(ERROR_ACCESS_DENIED, ""), ERROR_ACCESS_DENIED);
    EXPECT_EQ(name, L"ncalrpc:[ZorvHelpRpcEndpoint,Security=Identification Static True]");
    EXPECT_EQ(open(RPC_S_OK, ""), RPC_S_SERVER_UNAVAILABLE);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(open(RPC_S_OK, "ZorvNobody"), RPC_S_SERVER_UNAVAILABLE);
    EXPECT_EQ(asked, 0) << "whose another endpoint is, its maker knows";
}

constexpr auto kPatience = std::chrono::seconds(20);
constexpr std::int64_t kHeld = -7;  // the cookie of a call that waits behind its first callback
std::counting_semaphore<> closedContexts(0), heldCalls(0), goOn(0);

void big_call(RpcContext, const wchar_t* input, wchar_t* output, std::int32_t size, std::int64_t) {
    const std::wstring text = input;
    heldCalls.release();
    EXPECT_TRUE(goOn.try_acquire_for(kPatience));
    EXPECT_TRUE(std::all_of(output, output + size, [](wchar_t c) { return c == 0; }));
    text.copy(output, text.size());
}

// Wine carries no callbacks, so the service's end, which is in this process, hands them to the client's stubs itself.
void call_back(RpcContext, std::int64_t cookie) {
    serve_CallbackText("\xe4", 0, cookie);
    EXPECT_TRUE(cookie != kHeld || goOn.try_acquire_for(kPatience));
    serve_CallbackFlag(255, 7, cookie);
    serve_CallbackInteger(40, 3, cookie);
}

// Up from the first test to the end of the process, as the service's own.
class Rpc : public testing::Test {
protected:
    static void SetUpTestSuite() {
        HOOK(GetProcAddress, find);
        wantedSids = 1;
        const std::wstring name(endpoint.begin(), endpoint.end());
        static RpcProcedures procedures{};
        procedures.RemoteOpen = []() -> RpcContext { return &closedContexts; };
        procedures.RemoteClose = [](RpcContext context) { static_cast<decltype(closedContexts)*>(context)->release(); };
        procedures.BigDataServiceCall = big_call;
        procedures.GetModelName = call_back;
        ASSERT_EQ(RpcEndpoint({name.c_str(), kPackage, 10, 1234}, procedures).status(), 0U);
    }
    static void TearDownTestSuite() {
        stop_rpc_endpoint();
        EXPECT_EQ(status_of([] { Client({}, endpoint); }), RPC_S_SERVER_UNAVAILABLE);
    }

    static void expect_closed() { EXPECT_TRUE(closedContexts.try_acquire_for(kPatience)); }

    static inline const std::string endpoint = "ZorvTest" + std::to_string(::GetCurrentProcessId());
};

// Past Wine's runtime, which lets no second call have a context at once and forgets it with its client.
TEST_F(Rpc, ClosesAContextOnceAndRefusesItAfterwards) {
    ClientContext context = nullptr;
    serve_RemoteOpen(nullptr, &context);
    ClientContext stale = context;
    EXPECT_EQ(zorvalis_rpc::Guarded([&] { serve_RemoteClose(&context); }), 0U);
    EXPECT_EQ(context, nullptr);
    EXPECT_TRUE(closedContexts.try_acquire());
    EXPECT_EQ(zorvalis_rpc::Guarded([&] { serve_RemoteClose(&context); }), RPC_X_SS_IN_NULL_CONTEXT);
    EXPECT_EQ(zorvalis_rpc::Guarded([&] { serve_GetModelName(context, 1); }), RPC_X_SS_IN_NULL_CONTEXT);
    EXPECT_EQ(zorvalis_rpc::Guarded([&] { serve_RemoteClose(&stale); }), RPC_X_SS_CONTEXT_MISMATCH);
    EXPECT_EQ(zorvalis_rpc::Guarded([&] { serve_GetModelName(stale, 1); }), RPC_X_SS_CONTEXT_MISMATCH);
    ClientContextRundown(stale);
    EXPECT_FALSE(closedContexts.try_acquire());
}

// While another client's call runs, of which Wine runs one on a context at a time, whatever its flags say. Before all
// faults, after which Wine closes the contexts of the next clients too.
TEST_F(Rpc, LetsACallBeGivenUpAndTakesTheLateAnswer) {
    static void* room = nullptr;
    HOOK(VirtualAlloc, [](void* address, SIZE_T size, DWORD type, DWORD protection) {
        void* const memory = trueAllocate(address, size, type, protection);
        room = protection == PAGE_NOACCESS ? memory : room;
        return memory;
    });
    auto other = std::make_unique<Client>(Callbacks(), endpoint);
    auto client = std::make_unique<Client>(Callbacks(), endpoint);
    auto call = std::async(std::launch::async, [&] { return status_of([&] { client->BigDataServiceCall("hold"); }); });
    EXPECT_TRUE(heldCalls.try_acquire_for(kPatience));
    auto answered = std::async(std::launch::async, [&] { return other->BigDataServiceCall("hold"); });
    EXPECT_TRUE(heldCalls.try_acquire_for(kPatience));
    client->Cancel();
    EXPECT_EQ(call.get(), ZORVALIS_CANCELLED);
    client.reset();
    MEMORY_BASIC_INFORMATION info{};
    EXPECT_TRUE(::VirtualQuery(room, &info, sizeof info) != 0 && info.State != MEM_FREE);
    EXPECT_FALSE(closedContexts.try_acquire()) << "under a call";
    goOn.release(2);
    EXPECT_EQ(answered.get(), "hold") << "which belongs to another client";
    other.reset();
    expect_closed();
    expect_closed();
}

// The pool's thread is the test's own, and comes too late; then there is none.
TEST_F(Rpc, MakesNoCallThatWasGivenUpBeforeItBegan) {
    static PTP_SIMPLE_CALLBACK function;
    static void* call;
    function = nullptr;
    auto client = std::make_unique<Client>(Callbacks(), endpoint);
    client->SetLimit(std::chrono::milliseconds(20));
    HOOK(TrySubmitThreadpoolCallback, [](PTP_SIMPLE_CALLBACK made, void* argument, PTP_CALLBACK_ENVIRON) -> BOOL {
        call = argument;
        return std::exchange(function, made) == nullptr;
    });
    EXPECT_EQ(status_of([&] { client->BigDataServiceCall("hold"); }), ZORVALIS_TIMED_OUT);
    function(nullptr, call);
    EXPECT_FALSE(heldCalls.try_acquire());
    EXPECT_EQ(status_of([&] { client->BigDataServiceCall("hold"); }), ZORVALIS_OUT_OF_MEMORY);
    client.reset();
    expect_closed();
}

// The library, as applications have it, may be unloaded while a call is out.
TEST_F(Rpc, KeepsTheLibraryUntilItsLastCallHasEnded) {
    const HMODULE library = ::LoadLibraryA(built("zorvalis_client.dll").c_str());
    ASSERT_NE(library, nullptr);
#define FUNCTION(name) reinterpret_cast<decltype(&name)>(reinterpret_cast<void*>(::GetProcAddress(library, #name)))
    const ZorvalisOptions options = {sizeof options, 0, 0, endpoint.c_str()};
    ZorvalisClient* client = nullptr;
    ASSERT_EQ(FUNCTION(ZorvalisOpen)(&options, nullptr, &client), 0);
    auto call = std::async(std::launch::async, [&, answer = static_cast<char*>(nullptr)]() mutable {
        return FUNCTION(ZorvalisBigDataServiceCall)(client, "hold", 10, &answer);
    });
    EXPECT_TRUE(heldCalls.try_acquire_for(kPatience));
    EXPECT_EQ(FUNCTION(ZorvalisClose)(client), 0);
    EXPECT_EQ(call.get(), ZORVALIS_CANCELLED);
    ::FreeLibrary(library);
    EXPECT_NE(::GetModuleHandleW(L"zorvalis_client.dll"), nullptr);
    goOn.release();
    expect_closed();
}

// The first throws as this compiler does, the second as Visual C++ does.
TEST_F(Rpc, DropsWhatACallbackThrows) {
    static std::int64_t sum;
    sum = 0;
    const ZorvalisCallbacks callbacks = {
        sizeof callbacks,
        nullptr,
        nullptr,
        [](void*, const char*, std::int32_t, std::int64_t) { throw ++sum; },
        [](void*, std::int32_t result, std::int32_t, std::int64_t) {
            sum += result;
            ::RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr);
        },
        [](void*, std::int32_t result, std::int32_t, std::int64_t cookie) { sum += result + cookie; }};
    // On the thread of its call a callback finds it whatever its cookie.
    HOOK(RpcBindingFromStringBindingW, [](RPC_WSTR text, RPC_BINDING_HANDLE* binding) {
        serve_CallbackInteger(1000, 3, 0);
        return trueFromString(text, binding);
    });
    zorvalis_client::Session(callbacks, endpoint, 0).GetModelName(300);
    EXPECT_EQ(sum, 1342);
    expect_closed();
}

// The callback that runs may cancel, and may not call. Closing waits for it, and no other one comes.
TEST_F(Rpc, ClosesAClientWhenItsCallbackHasReturned) {
    std::binary_semaphore left(0);
    std::unique_ptr<Client> client;
    std::atomic<int> heard = 0;
    Callbacks callbacks;
    callbacks.text = [&](const std::string&, std::int32_t, std::int64_t) {
        EXPECT_EQ(status_of([&] { client->GetUUID(); }), ZORVALIS_IN_CALLBACK);
        client->Cancel();
        EXPECT_TRUE(left.try_acquire_for(kPatience));
        ++heard;
    };
    callbacks.integer = [&](std::int32_t, std::int32_t, std::int64_t) { ++heard; };
    client = std::make_unique<Client>(callbacks, endpoint);
    EXPECT_EQ(status_of([&] { client->GetModelName(kHeld); }), ZORVALIS_CANCELLED);
    auto closing = std::async(std::launch::async, [&] { client.reset(); });
    EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    left.release();
    closing.get();
    EXPECT_EQ(heard, 1);
    goOn.release();
    expect_closed();
    EXPECT_EQ(heard, 1);
}

constexpr char kOfChild[] = "ZORV_TEST_ENDPOINT", kOpened[] = "ZorvalisContextOpened";

// The client of the next test, which starts it in a process of its own and ends that without a word.
TEST(RpcChild, DISABLED_HoldsAContext) {
    const Client client({}, std::getenv(kOfChild));
    const OwnedHandle opened(::OpenEventA(EVENT_MODIFY_STATE, FALSE, kOpened));
    ::SetEvent(opened.get());
    ::Sleep(30000);
}

// One of the first: a fault closes contexts too, at any time.
TEST_F(Rpc, ClosesTheContextsOfAClientThatDied) {
    { const Client client({}, endpoint); }
    EXPECT_TRUE(closedContexts.try_acquire());
    const OwnedHandle opened(::CreateEventA(nullptr, TRUE, FALSE, kOpened));
    ::SetEnvironmentVariableA(kOfChild, endpoint.c_str());
    std::string command = built("../tests/zorvalis-tests.exe") +
                          " --gtest_also_run_disabled_tests --gtest_filter=RpcChild.DISABLED_HoldsAContext";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    ASSERT_TRUE(
        ::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &child));
    const OwnedHandle thread(child.hThread), process(child.hProcess);
    const HANDLE either[] = {opened.get(), process.get()};
    EXPECT_EQ(::WaitForMultipleObjects(2, either, FALSE, 30000), WAIT_OBJECT_0);
    EXPECT_FALSE(closedContexts.try_acquire());
    ::TerminateProcess(process.get(), 1);
    expect_closed();
}

// Its sizes are sdk_package_test.py's.
TEST_F(Rpc, RefusesANullContext) {
    ClientContext none = nullptr;
    EXPECT_EQ(zorvalis_rpc::Guarded([] { call_GetModelName(nullptr, 1); }), RPC_X_SS_IN_NULL_CONTEXT);
    EXPECT_EQ(zorvalis_rpc::Guarded([&none] { call_RemoteClose(&none); }), RPC_X_SS_IN_NULL_CONTEXT);
}

}  // namespace
}  // namespace platform
