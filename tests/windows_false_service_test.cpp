// A process that took the service's endpoint: what it may do to a client. Its answers are made byte by byte, past the
// stubs; a client's side is the library's own.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "rpc/guard.h"
#include "rpc/output_block.h"
#include "zorvalis_client.h"
#include "zorvalis_rpc.h"

namespace {

using zorvalis_client::Client;
using zorvalis_rpc::OutputBlock;

constexpr int kProcedures = 20;
std::string nextAnswer;

std::string number(std::uint32_t value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// An array as it goes over the wire: how many there are, and the 16-bit units of them that are sent.
std::string array(std::uint32_t count, const std::u16string& units) {
    return number(count) + std::string(reinterpret_cast<const char*>(units.data()), units.size() * 2);
}

// Opens and closes contexts, and answers everything else with what the test has set.
void __RPC_STUB serve(RPC_MESSAGE* message) {
    const std::string opened = number(0) + std::string(16, 'c'), closed(20, '\0');
    const std::string& bytes = message->ProcNum == 0 ? opened : message->ProcNum == 1 ? closed : nextAnswer;
    message->BufferLength = static_cast<unsigned>(bytes.size());
    EXPECT_EQ(::I_RpcGetBuffer(message), RPC_S_OK);
    std::memcpy(message->Buffer, bytes.data(), bytes.size());
}

// What a call gets, or the status of its error.
template <class Call>
std::string asked(Call call) {
    try {
        return call();
    } catch (const zorvalis_client::Error& error) {
        return std::to_string(error.status);
    }
}

class FalseService : public testing::Test {
protected:
    FalseService() {
        std::fill_n(procedures_, kProcedures, serve);
        interface_ = *static_cast<RPC_SERVER_INTERFACE*>(serve_Zorvalis_v1_0_s_ifspec);
        interface_.DispatchTable = &table_;
        EXPECT_EQ(::RpcServerUseProtseqEpA(RPC_CSTR("ncalrpc"), 10, RPC_CSTR(endpoint_.c_str()), nullptr), RPC_S_OK);
        EXPECT_EQ(::RpcServerRegisterIfEx(&interface_, nullptr, nullptr, RPC_IF_AUTOLISTEN, 1234, nullptr), RPC_S_OK);
    }
    ~FalseService() override { ::RpcServerUnregisterIf(&interface_, nullptr, TRUE); }

    const std::string endpoint_ = "ZorvFalse" + std::to_string(::GetCurrentProcessId());

private:
    RPC_DISPATCH_FUNCTION procedures_[kProcedures + 1] = {};
    RPC_DISPATCH_TABLE table_{kProcedures, procedures_, 0};
    RPC_SERVER_INTERFACE interface_{};
};

// Wine's runtime takes the service's word for the size, so here the block alone holds. One client for all cases, which
// stays usable.
TEST_F(FalseService, CannotWriteBehindTheRoomForAnAnswer) {
    const std::string violation = std::to_string(static_cast<std::int32_t>(EXCEPTION_ACCESS_VIOLATION));
    const std::pair<std::string, std::string> cases[] = {
        {array(4, std::u16string(u"abc\0", 4)), "abc"},
        {array(5, std::u16string(u"abcd\0", 5)), violation},
        {array(1 << 14, std::u16string(1 << 14, u'x')), violation},
        {array(4, u"abcd"), "1728"},  // no terminator
        {array(4, u"ab"), "1783"},    // fewer than it says
        {array(0xFFFFFFFF, u"abcd"), "1734"},
        {"", "1783"},
    };
    Client client({}, endpoint_);
    for (const auto& [bytes, expected] : cases) {
        nextAnswer = bytes;
        EXPECT_EQ(asked([&] { return client.GetUUID(4); }), expected) << bytes.size();
        EXPECT_EQ(asked([&] { return client.BigDataServiceCall("{}", 4); }), expected) << bytes.size();
    }
    nextAnswer = number(1) + std::string(100, 'x');
    EXPECT_TRUE(client.SetMyZorvPP("", "", "", "", true));
}

TEST(OutputBlock, EndsWhereNobodyMayWrite) {
    for (const std::int32_t size : {-1, 0, 1, 2047, 2048, 2049, 1 << 20}) {
        OutputBlock block(size);
        const int last = std::max(size, 1) - 1;
        EXPECT_EQ(block.Text(), L"") << size;
        const auto write = [&](int at) { return zorvalis_rpc::Guarded([&] { block.Data()[at] = L'x'; }); };
        EXPECT_EQ(write(0) + write(last), 0U) << size;
        EXPECT_EQ(write(last + 1), EXCEPTION_ACCESS_VIOLATION) << size;
    }
}

}  // namespace
