// The second transfer syntax of the endpoint, which Wine's runtime lacks: calls and callbacks as the published wire
// format has them, made here of the procedures' C++ parameters alone, through the compiled tables and a double of the
// runtime.
#include <windows.h>

#include <gtest/gtest.h>

#include "platform/rpc_callback.h"
#include "platform/windows/rpc_interface.h"
#include "rpc/guard.h"
#include "support/import_hook.h"
#include "windows/ndr64.h"
#include "zorvalis_rpc.h"

namespace platform {
namespace {

enum Number : unsigned {
    kRemoteOpen,
    kRemoteClose,
#define NUMBER(name, ...) k##name,
    ZORVALIS_PROCEDURES(NUMBER)
};

constexpr std::int32_t kRoom = 241, kResult = -7;  // the room is odd, so what lies behind an answer is moved
constexpr wchar_t kAnswer[kRoom] = L"answer";
template <class Character>
constexpr Character kText[] = {'a', 'b', Character(0xe4), 0};

// A value that a client passes; null where the answer is to go.
template <class Value>
Value value_of(std::int64_t seed) {
    if constexpr (std::is_same_v<Value, const wchar_t*> || std::is_same_v<Value, const char*>) {
        return kText<std::remove_const_t<std::remove_pointer_t<Value>>> + seed % 3;
    } else if constexpr (std::is_pointer_v<Value>) {
        return nullptr;
    } else {
        return static_cast<Value>(sizeof(Value) == 8 ? INT64_MIN + seed : sizeof(Value) == 4 ? kRoom : 0xf0 + seed);
    }
}

// By the types of a procedure's parameters: what they are in a request, in an answer, and what is to be answered.
struct Wire : ndr64::Wire {
    void text(const auto* value, std::int64_t length) {
        put(length);
        put(std::int64_t{0});
        put(length);
        put(value, length * sizeof *value, sizeof *value);
    }
    void in(const wchar_t* value) { text(value, std::wcslen(value) + 1); }
    void in(const char* value) { text(value, std::strlen(value) + 1); }
    void in(wchar_t*) {}
    void in(std::int32_t*) {}
    void in(auto value) { put(value); }
    void out(std::int32_t*) { put(kResult); }
    void out(wchar_t*) {
        put(std::int64_t{kRoom});
        put(kAnswer, sizeof kAnswer, sizeof *kAnswer);
    }
    void out(auto) {}
    static void fill(std::int32_t* value) { *value = kResult; }
    static void fill(wchar_t* value) { std::wcscpy(value, kAnswer); }
    static void fill(auto) {}
};

std::string request(std::string context, auto... values) {
    Wire wire{{std::move(context)}};
    (wire.in(values), ...);
    return wire.bytes;
}

// The service's procedures: each writes down what it got, answers, and makes all callbacks.
std::string seen;
int opened;

template <unsigned number, class... Values>
void procedure(RpcContext context, Values... values) {
    EXPECT_EQ(context, &opened);
    seen = request(std::to_string(number), values...);
    (Wire::fill(values), ...);
    callback_test_data(-1, 2);
    callback_text(kText<char>, 3, 4);
    callback_flag(0xf5, 6, 7);
    callback_integer(-8, 9, INT64_MIN);
}

template <unsigned number, class... Values>
void set(void (*&member)(RpcContext, Values...)) {
    member = procedure<number, Values...>;
}

const auto& own = *static_cast<const RPC_SERVER_INTERFACE*>(serve_Zorvalis_v1_0_s_ifspec);
const auto& info = *static_cast<const MIDL_SERVER_INFO*>(own.InterpreterInfo);

std::string dispatch(unsigned number, std::string bytes, int syntax = 1) {
    RPC_MESSAGE message{};
    message.Buffer = bytes.data();
    message.BufferLength = static_cast<unsigned>(bytes.size());
    message.RpcInterfaceInformation = const_cast<RPC_SERVER_INTERFACE*>(&own);
    message.ProcNum = number;
    info.pSyntaxInfo[syntax].DispatchTable->DispatchTable[number](&message);
    return {static_cast<const char*>(message.Buffer), message.BufferLength};
}

class RpcNdr64 : public testing::Test {
protected:
    RpcNdr64() {
        static RpcProcedures procedures{};
        procedures.RemoteOpen = []() -> RpcContext { return &opened; };
        procedures.RemoteClose = [](RpcContext closed) { EXPECT_EQ(closed, &opened); };
#define SET(name, ...) set<k##name>(procedures.name);
        ZORVALIS_PROCEDURES(SET)
        set_rpc_procedures(procedures);
        context = dispatch(kRemoteOpen, "");
        ndr64::served = 0;
        ndr64::sent.clear();
    }

    template <unsigned number, class... Values>
    void try_one(void (*)(RpcContext, Values...)) {
        std::int64_t seed = number;
        const auto next = [&seed] { return ++seed; };
        [this](auto... values) {
            Wire answer;
            (answer.out(values), ...);
            EXPECT_EQ(dispatch(number, request(context, values...)), answer.bytes) << number;
            EXPECT_EQ(seen, request(std::to_string(number), values...));
            EXPECT_EQ(std::exchange(ndr64::sent, {}), callbacks) << number;
        }(value_of<Values>(next())...);
    }

    const ImportHook server{"NdrServerCallAll", ::NdrServerCallAll, ndr64::serve};
    const ImportHook client{"NdrClientCall3", ::NdrClientCall3, ndr64::call};
    const std::string null = std::string(20, '\0');
    std::string context;
    const ndr64::Callbacks callbacks{{0, request("", std::int64_t{-1}, std::int64_t{2})},
                                     {1, request("", kText<char> + 0, std::int32_t{3}, std::int64_t{4})},
                                     {2, request("", std::uint8_t{0xf5}, std::int32_t{6}, std::int64_t{7})},
                                     {3, request("", std::int32_t{-8}, std::int32_t{9}, INT64_MIN)}};
};

TEST_F(RpcNdr64, CarriesEveryCallItsAnswerAndItsCallbacks) {
#define TRY(name, ...) try_one<k##name>(RpcProcedures{}.name);
    ZORVALIS_PROCEDURES(TRY)
    for (const Number number : {kGetModelName, kRemoteClose}) {
        const auto refused = [&] { dispatch(number, request(null, std::int64_t{1})); };
        EXPECT_EQ(zorvalis_rpc::Guarded(refused), RPC_X_SS_IN_NULL_CONTEXT);
    }
    EXPECT_EQ(ndr64::served, 18) << "the runtime refuses a null context before any code of the service runs";
    EXPECT_EQ(dispatch(kRemoteClose, context), null);
}

ClientContext number_by_ndr;
int called_by_ndr;

CLIENT_CALL_RETURN call_by_ndr(PMIDL_STUB_DESC, PFORMAT_STRING, ...) {
    ++called_by_ndr;
    return {};
}

// Also after a call by the other syntax that was refused, and while one arrives within a callback.
TEST_F(RpcNdr64, CallsBackByTheSyntaxOfTheCall) {
    serve_RemoteOpen(nullptr, &number_by_ndr);
    HOOK(NdrServerCall2, [](RPC_MESSAGE*) { serve_GetModelName(number_by_ndr, 0); });
    HOOK(NdrClientCall2, call_by_ndr);
    EXPECT_NE(zorvalis_rpc::Guarded([this] { dispatch(kGetModelName, request(null, std::int64_t{1})); }), 0U);
    dispatch(kGetModelName, "", 0);
    EXPECT_EQ(std::exchange(called_by_ndr, 0), 4);
    ndr64::during_callback = [] { dispatch(kGetModelName, "", 0); };
    dispatch(kGetModelName, request(context, std::int64_t{1}));
    ndr64::during_callback = nullptr;
    EXPECT_EQ(ndr64::sent, callbacks);
    EXPECT_EQ(called_by_ndr, 4 * 4);
}

// The rest of what points to the tables is ndr64_facts_test.py's.
TEST_F(RpcNdr64, IsOfferedByItsName) {
    try_one<kGetModelName>(RpcProcedures{}.GetModelName);
    constexpr RPC_SYNTAX_IDENTIFIER kNdr64{
        {0x71710533, 0xbeba, 0x4937, {0x83, 0x19, 0xb5, 0xdb, 0xef, 0x9c, 0xcc, 0x36}}, {1, 0}};
    for (const MIDL_SYNTAX_INFO* const syntaxes : {info.pSyntaxInfo, ndr64::sent_by->pSyntaxInfo}) {
        EXPECT_EQ(std::memcmp(&syntaxes[0].TransferSyntax, &own.TransferSyntax, sizeof own.TransferSyntax), 0);
        EXPECT_EQ(std::memcmp(&syntaxes[1].TransferSyntax, &kNdr64, sizeof kNdr64), 0);
    }
    EXPECT_EQ(ndr64::sent_by->pStubDesc->RpcInterfaceInformation, &own);
}

}  // namespace
}  // namespace platform
