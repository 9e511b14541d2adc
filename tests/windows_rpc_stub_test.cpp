// What nothing here can run: the format strings that the RPC runtime of Windows reads, byte by byte as its
// documentation describes them, since Wine refuses to make callbacks and to run a context's calls at once.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zorvalis_rpc.h"

namespace platform {
namespace {

// Codes: 00 explicit handle, 30 bound by context handle, 32 by primitive handle, 34 callback; 02 char, 08 long, 0b
// hyper, 22 5c narrow string, 25 5c wide string, 1b array, 28 its length in a long parameter (which comes later: flags
// 0000), 05 wide char, 5b end. Extension: length, 01 new correlation descriptors, 02 the client checks, how many.
// Context flags: 01 not null, 04 not serialized, 20 out, 40 in, 80 by pointer. Parameter flags: 0001 to be sized, 0002
// to be freed, 0008 in, 0010 out, 0040 base type, 0100 simple reference, 2000 eight bytes allocated for it. Numbers
// have their lower byte first: stack, binding, buffers of client and server, flags, count, extension.
#define CONTEXT "304500000000 "
#define EXTENSION "0a010000000000000000 "
#define CHECKING "0a030100000000000000 "
#define CONTEXT_IN "| 08000000 30450000 "

struct Procedure {
    unsigned char number;
    void* routine;
    std::string format;
};

template <class Function>
void* routine(Function* function) {
    return reinterpret_cast<void*>(function);
}

// One of each shape.
const std::vector<Procedure> kProcedures = {
    {0, routine(serve_RemoteOpen), "1000 32000000 00001800 4001 " EXTENSION "| 10010800 30a40000 "},
    {1, routine(serve_RemoteClose), "0800 30e500000000 18001800 4001 " EXTENSION "| 18010000 30e50000 "},
    {12, routine(serve_SetMyZorvPP),
     "4000 " CONTEXT "2d000800 4208 " EXTENSION CONTEXT_IN "| 0b010800 255c | 0b011000 255c | 0b011800 255c | 0b012000 "
     "255c | 48002800 0200 | 50213000 0800 | 48003800 0b00 "},
    {13, routine(serve_GetUUID),
     "2000 " CONTEXT "30000000 4104 " CHECKING CONTEXT_IN
     "| 13010800 1b010200280010000000055b | 48001000 0800 | 48001800 0b00 "},
    {19, routine(serve_BigDataServiceCall),
     "2800 " CONTEXT "30000000 4305 " CHECKING CONTEXT_IN
     "| 0b010800 255c | 13011000 1b010200280018000000055b | 48001800 0800 | 48002000 0b00 "},
};

const std::vector<Procedure> kCallbacks = {
    {1, routine(serve_CallbackText),
     "1800 18000000 4203 " EXTENSION "| 0b010000 225c | 48000800 0800 | 48001000 0b00 "},
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
        text += hex(type, base ? 2 : *type == 0x30 ? 4 : *type == 0x1b ? 12 : 2);
    }
    return text;
}

void expect_procedures(const MIDL_SERVER_INFO& info, const char* handle, const std::vector<Procedure>& procedures) {
    for (const auto& [number, routine, format] : procedures) {
        EXPECT_EQ(reinterpret_cast<void*>(info.DispatchTable[number]), routine) << +number;
        EXPECT_EQ(described(info.ProcString + info.FmtStringOffset[number], info.pStubDesc->pFormatTypes),
                  std::string(handle) + " 48 00000000 " + hex(&number, 1).substr(0, 2) + "00 " + format);
    }
}

constexpr unsigned kHasCallbacks = 0x04000000;

TEST(RpcStub, DescribesTheProceduresOfBothEnds) {
    const auto& server = *static_cast<const RPC_SERVER_INTERFACE*>(serve_Zorvalis_v1_0_s_ifspec);
    const auto& client = *static_cast<const RPC_CLIENT_INTERFACE*>(call_Zorvalis_v1_0_c_ifspec);
    EXPECT_EQ(server.Flags & kHasCallbacks, kHasCallbacks);
    EXPECT_EQ(client.Flags, kHasCallbacks);
    ASSERT_EQ(server.DispatchTable->DispatchTableCount, 20U);
    ASSERT_EQ(client.DispatchTable->DispatchTableCount, 4U);
    expect_procedures(*static_cast<const MIDL_SERVER_INFO*>(server.InterpreterInfo), "00", kProcedures);
    const auto& callbacks = *static_cast<const MIDL_SERVER_INFO*>(client.InterpreterInfo);
    expect_procedures(callbacks, "34", kCallbacks);
    EXPECT_EQ(callbacks.pStubDesc->RpcInterfaceInformation, call_Zorvalis_v1_0_c_ifspec);
}

}  // namespace
}  // namespace platform
