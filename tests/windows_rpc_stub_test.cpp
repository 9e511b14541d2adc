// What nothing here can run: the format strings that the RPC runtime of Windows reads, byte by byte as its
// documentation describes them, since Wine refuses to make callbacks and to run a context's calls at once. And who may
// connect.
#include <windows.h>

#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <set>

#include "client/rpc_server.h"
#include "platform/rpc_callback.h"
#include "platform/rpc_endpoint.h"
#include "platform/windows/rpc_call.h"
#include "platform/windows/rpc_guard.h"
#include "support/import_hook.h"
#include "windows/double/capability.h"
#include "zorvalis_rpc.h"

// Not in this compiler's headers.
extern "C" __declspec(dllimport) RPC_STATUS RPC_ENTRY
    RpcServerRegisterIf3(RPC_IF_HANDLE, UUID*, RPC_MGR_EPV*, unsigned, unsigned, unsigned, RPC_IF_CALLBACK_FN*, void*);

namespace platform {
namespace {

// Codes: 00 explicit handle, 30 bound by context handle, 32 by primitive handle, 34 callback; 02 char, 08 long, 0b
// hyper, 22 5c narrow string, 25 5c wide string, 1b array, 28 its length in a long parameter, 05 wide char, 5b end.
// Context flags: 01 not null, 04 not serialized, 20 out, 40 in, 80 by pointer. Parameter flags: 0001 to be sized, 0002
// to be freed, 0008 in, 0010 out, 0040 base type, 0100 simple reference, 2000 eight bytes allocated for it. Numbers
// have their lower byte first: stack, binding, buffers of client and server, flags, count, extension.
#define CONTEXT "304500000000 "
#define EXTENSION "0a000000000000000000 "
#define CONTEXT_IN "| 08000000 30450000 "

constexpr char kOnlyCookie[] = "1000 " CONTEXT "28000000 4002 " EXTENSION CONTEXT_IN "| 48000800 0b00 ";
constexpr char kNumber[] = "1800 " CONTEXT "38000000 4003 " EXTENSION CONTEXT_IN "| 48000800 0b00 | 48001000 0b00 ";
constexpr char kFlag[] = "1800 " CONTEXT "2d000000 4003 " EXTENSION CONTEXT_IN "| 48000800 0200 | 48001000 0b00 ";

struct Procedure {
    void* routine;
    std::string format;
};

template <class Function>
void* routine(Function* function) {
    return reinterpret_cast<void*>(function);
}

const std::vector<Procedure> kProcedures = {
    {routine(serve_RemoteOpen), "1000 32000000 00001800 4001 " EXTENSION "| 10010800 30a40000 "},
    {routine(serve_RemoteClose), "0800 30e500000000 18001800 4001 " EXTENSION "| 18010000 30e50000 "},
    {routine(serve_GetTestDataFunc), kNumber},
    {routine(serve_GetModelName), kOnlyCookie},
    {routine(serve_GetSerialNumber), kOnlyCookie},
    {routine(serve_GetFamilyName), kOnlyCookie},
    {routine(serve_GetChassisTypes), kOnlyCookie},
    {routine(serve_GetProductName), kOnlyCookie},
    {routine(serve_GetBatteryHealthMode), kOnlyCookie},
    {routine(serve_GetQuietFanMode), kOnlyCookie},
    {routine(serve_GetSystemInfoData), kOnlyCookie},
    {routine(serve_GetVersionString), kOnlyCookie},
    {routine(serve_SetMyZorvPP),
     "4000 " CONTEXT "2d000800 4208 " EXTENSION CONTEXT_IN "| 0b010800 255c | 0b011000 255c | 0b011800 255c | 0b012000 "
     "255c | 48002800 0200 | 50213000 0800 | 48003800 0b00 "},
    {routine(serve_GetUUID), "2000 " CONTEXT "30000000 4104 " EXTENSION CONTEXT_IN
                             "| 13010800 1b01020028001000055b | 48001000 0800 | 48001800 0b00 "},
    {routine(serve_SetBatteryHealth), kNumber},
    {routine(serve_SetQuietFan), kFlag},
    {routine(serve_SetAppFolder),
     "1800 " CONTEXT "28000000 4203 " EXTENSION CONTEXT_IN "| 0b010800 255c | 48001000 0b00 "},
    {routine(serve_SetMainSwitchByUser), kFlag},
    {routine(serve_GetMainSwitchByUser), kOnlyCookie},
    {routine(serve_BigDataServiceCall),
     "2800 " CONTEXT "30000000 4305 " EXTENSION CONTEXT_IN
     "| 0b010800 255c | 13011000 1b01020028001800055b | 48001800 0800 | 48002000 0b00 "},
};

const std::vector<Procedure> kCallbacks = {
    {routine(serve_CallbackTestData), "1000 20000000 4002 " EXTENSION "| 48000000 0b00 | 48000800 0b00 "},
    {routine(serve_CallbackText), "1800 18000000 4203 " EXTENSION "| 0b010000 225c | 48000800 0800 | 48001000 0b00 "},
    {routine(serve_CallbackFlag), "1800 1d000000 4003 " EXTENSION "| 48000000 0200 | 48000800 0800 | 48001000 0b00 "},
    {routine(serve_CallbackInteger),
     "1800 20000000 4003 " EXTENSION "| 48000000 0800 | 48000800 0800 | 48001000 0b00 "},
};

std::string hex(const unsigned char* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text + " ";
}

// All bytes of a procedure, each parameter with those of its type.
std::string described(const unsigned char* procedure, const unsigned char* types) {
    const unsigned char handle = procedure[0];
    std::string text;
    const auto take = [&](std::size_t count) {
        text += hex(procedure, count);
        procedure += count;
    };
    for (const std::size_t count : {1, 1, 4, 2, 2}) {  // handle, flags, runtime's flags, number, stack
        take(count);
    }
    if (handle == 0) {
        take(*procedure == 0x30 ? 6 : 4);
    }
    take(4);
    int parameters = procedure[1];
    for (take(2), take(10); parameters > 0; --parameters, procedure += 2) {
        const bool base = (procedure[0] & 0x40) != 0;
        text += "| ";
        take(4);
        const unsigned char* const type = base ? procedure : types + (procedure[0] | procedure[1] << 8);
        text += hex(type, base ? 2 : *type == 0x30 ? 4 : *type == 0x1b ? 10 : 2);
    }
    return text;
}

std::string expected(const char* handle, unsigned char number, const Procedure& procedure) {
    return std::string(handle) + " 48 00000000 " + hex(&number, 1).substr(0, 2) + "00 " + procedure.format;
}

void expect_procedures(const MIDL_SERVER_INFO& info, const char* handle, const std::vector<Procedure>& procedures) {
    for (unsigned char number = 0; number < procedures.size(); ++number) {
        EXPECT_EQ(routine(info.DispatchTable[number]), procedures[number].routine) << +number;
        EXPECT_EQ(described(info.ProcString + info.FmtStringOffset[number], info.pStubDesc->pFormatTypes),
                  expected(handle, number, procedures[number]));
    }
}

constexpr unsigned kHasCallbacks = 0x04000000;

TEST(RpcStub, DescribesTheProceduresOfBothEnds) {
    const auto& server = *static_cast<const RPC_SERVER_INTERFACE*>(serve_Zorvalis_v1_0_s_ifspec);
    const auto& client = *static_cast<const RPC_CLIENT_INTERFACE*>(call_Zorvalis_v1_0_c_ifspec);
    EXPECT_EQ(server.Flags, kHasCallbacks);
    EXPECT_EQ(client.Flags, kHasCallbacks);
    ASSERT_EQ(server.DispatchTable->DispatchTableCount, kProcedures.size());
    ASSERT_EQ(client.DispatchTable->DispatchTableCount, kCallbacks.size());
    expect_procedures(*static_cast<const MIDL_SERVER_INFO*>(server.InterpreterInfo), "00", kProcedures);
    const auto& callbacks = *static_cast<const MIDL_SERVER_INFO*>(client.InterpreterInfo);
    expect_procedures(callbacks, "34", kCallbacks);
    EXPECT_EQ(callbacks.pStubDesc->RpcInterfaceInformation, call_Zorvalis_v1_0_c_ifspec);
}

std::vector<std::string> made;

CLIENT_CALL_RETURN make(PMIDL_STUB_DESC stub, PFORMAT_STRING procedure, ...) {
    EXPECT_EQ(stub->RpcInterfaceInformation, serve_Zorvalis_v1_0_s_ifspec);
    EXPECT_EQ(stub->IMPLICIT_HANDLE_INFO.pPrimitiveHandle, nullptr);
    made.push_back(described(procedure, stub->pFormatTypes));
    return {};
}

TEST(RpcStub, MakesCallbacksInTheNameOfTheService) {
    HOOK(NdrClientCall2, make);
    const ServedCall call;
    callback_test_data(1, 2);
    callback_text("text", 1, 2);
    callback_flag(1, 2, 3);
    callback_integer(1, 2, 3);
    ASSERT_EQ(made.size(), kCallbacks.size());
    for (unsigned char number = 0; number < kCallbacks.size(); ++number) {
        EXPECT_EQ(made[number], expected("34", number, kCallbacks[number]));
    }
}

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

DWORD WINAPI set_entries(ULONG count, EXPLICIT_ACCESSW* entries, PACL old, PACL* list) {
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(old, nullptr);
    const std::pair<const wchar_t*, TRUSTEE_TYPE> trustees[] = {{L"S-1-1-0", TRUSTEE_IS_WELL_KNOWN_GROUP},
                                                                {L"S-1-15-3-1024-1-2-3-4-5-6-7-8", TRUSTEE_IS_UNKNOWN}};
    for (int i = 0; i < 2; ++i) {
        const auto& [sid, type] = trustees[i];
        const EXPLICIT_ACCESSW& entry = entries[i];
        wchar_t* text = nullptr;
        ::ConvertSidToStringSidW(entry.Trustee.ptstrName, &text);
        EXPECT_STREQ(text, sid);
        EXPECT_EQ(entry.Trustee.TrusteeType, type);
        EXPECT_EQ(entry.Trustee.TrusteeForm, TRUSTEE_IS_SID);
        EXPECT_EQ(entry.grfAccessPermissions, DWORD{GENERIC_ALL});
        EXPECT_EQ(entry.grfAccessMode, SET_ACCESS);
        EXPECT_EQ(entry.grfInheritance, DWORD{NO_INHERITANCE});
        trueLocalFree(text);
    }
    const DWORD status = trueSetEntries(count, entries, old, list);
    given.emplace_back(entries[0].Trustee.ptstrName, "everyone");
    given.emplace_back(*list, "list");
    return status;
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
    HOOK(SetEntriesInAclW, set_entries);
    HOOK(LocalFree, [](HLOCAL memory) -> HLOCAL {
        note_free(memory, "");
        return trueLocalFree(memory);
    });
    HOOK(FreeSid, [](PSID sid) -> void* {
        note_free(sid, "sid of ");
        return trueFreeSid(sid);
    });
    wantedSids = 1;
    {
        RpcSecurity security;
        std::uint32_t count = 0;
        ASSERT_EQ(security.derive_capabilities(kPackage, count), 0U);
        ASSERT_EQ(count, 1U);
        ASSERT_EQ(security.allocate_everyone(), 0U);
        ASSERT_EQ(security.build_access_list(), 0U);
        ASSERT_EQ(security.set_descriptor(), 0U);
        EXPECT_TRUE(freed.empty());
    }
    EXPECT_EQ(freed.size(), 7U);
    EXPECT_EQ((std::set<std::string>(freed.begin(), freed.end())),
              (std::set<std::string>{"capabilities", "capability 0", "group 0", "group 1", "groups", "list",
                                     "sid of everyone"}));
}

std::string steps;

void note_step(std::string step) {
    steps += (steps.empty() ? "" : "; ") + std::move(step);
}

bool is_described(void* descriptor) {
    BOOL present = FALSE, defaulted = TRUE;
    ACL* list = nullptr;
    return ::GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted) && present && !defaulted &&
           list != nullptr && list->AceCount == 2;
}

TEST(RpcEndpoint, IsOpenedAndClosedStepByStep) {
    HOOK(GetProcAddress, find);
    HOOK(RpcServerUseProtseqEpW,
         [](RPC_WSTR protocol, unsigned calls, RPC_WSTR endpoint, void* descriptor) -> RPC_STATUS {
             EXPECT_STREQ(reinterpret_cast<wchar_t*>(protocol), L"ncalrpc");
             EXPECT_STREQ(reinterpret_cast<wchar_t*>(endpoint), L"ZorvHelpRpcEndpoint");
             EXPECT_TRUE(is_described(descriptor));
             note_step("use " + std::to_string(calls));
             return 0;
         });
    HOOK(RpcServerRegisterIf3,
         [](RPC_IF_HANDLE handle, UUID* type, RPC_MGR_EPV* entries, unsigned flags, unsigned calls, unsigned size,
            RPC_IF_CALLBACK_FN* check, void* descriptor) -> RPC_STATUS {
             EXPECT_EQ(handle, serve_Zorvalis_v1_0_s_ifspec);
             EXPECT_TRUE(type == nullptr && entries == nullptr && check == nullptr && is_described(descriptor));
             note_step("register " + std::to_string(flags) + " " + std::to_string(calls) + " " +
                       std::to_string(static_cast<int>(size)));
             return 0;
         });
    static RPC_BINDING_VECTOR vector{};
    HOOK(RpcServerInqBindings, [](RPC_BINDING_VECTOR** bindings) -> RPC_STATUS {
        *bindings = &vector;
        note_step("bindings");
        return 0;
    });
    HOOK(RpcEpRegisterW,
         [](RPC_IF_HANDLE, RPC_BINDING_VECTOR* bindings, UUID_VECTOR* objects, RPC_WSTR words) -> RPC_STATUS {
             EXPECT_TRUE(bindings == &vector && objects == nullptr && words == nullptr);
             note_step("map");
             return 0;
         });
    HOOK(RpcServerListen, [](unsigned threads, unsigned calls, unsigned returns) -> RPC_STATUS {
        note_step("listen " + std::to_string(threads) + " " + std::to_string(calls) + " " + std::to_string(returns));
        return RPC_S_ALREADY_LISTENING;
    });
    HOOK(RpcServerUnregisterIf, [](RPC_IF_HANDLE, UUID* type, unsigned waits) -> RPC_STATUS {
        EXPECT_EQ(type, nullptr);
        note_step("unregister " + std::to_string(waits));
        return RPC_S_UNKNOWN_IF;
    });
    HOOK(RpcEpUnregister, [](RPC_IF_HANDLE, RPC_BINDING_VECTOR* bindings, UUID_VECTOR*) -> RPC_STATUS {
        EXPECT_EQ(bindings, &vector);
        note_step("unmap");
        return 5;
    });
    HOOK(RpcBindingVectorFree, [](RPC_BINDING_VECTOR** bindings) -> RPC_STATUS {
        EXPECT_EQ(*bindings, &vector);
        *bindings = nullptr;
        note_step("free");
        return 0;
    });
    wantedSids = 1;
    EXPECT_EQ(zorvalis::RpcServerStart(), 0U);
    zorvalis::RpcServerStop();
    EXPECT_EQ(steps, "use 10; register 33 1234 -1; bindings; map; listen 1 1234 0; unregister 0; unmap; free");
}

TEST(RpcGuard, TakesStatusesAndOfACallbackAll) {
    const auto raise = [](DWORD code) {
        return [code] { ::RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr); };
    };
    EXPECT_EQ(rpc_guarded([] {}), 0U);
    EXPECT_EQ(rpc_guarded(raise(1702)), 1702U);
    for (const DWORD code : {DWORD{1702}, DWORD{0xC0000094}, DWORD{0xE06D7363}, DWORD{0x20474343}}) {
        EXPECT_EQ(callback_guarded(raise(code)), code);
    }
}

}  // namespace
}  // namespace platform
