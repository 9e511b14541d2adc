// A process that took the service's endpoint: what it may do to a client. A client's side is the library's
// own.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "rpc/guard.h"
#include "rpc/output_block.h"
#include "windows/false_service.h"
#include "zorvalis_client.h"

namespace {

using zorvalis_client::Client;
using zorvalis_rpc::OutputBlock;

// What a call gets, or the status of its error.
template <class Call>
std::string asked(Call call) {
    try {
        return call();
    } catch (const zorvalis_client::Error& error) {
        return std::to_string(error.status);
    }
}

// Wine's runtime takes the service's word for the size, so here the block alone holds. One client for all cases, which
// stays usable.
TEST(FalseService, CannotWriteBehindTheRoomForAnAnswer) {
    const std::string endpoint = "ZorvFalse" + std::to_string(::GetCurrentProcessId());
    const false_service::Server server(endpoint);
    ASSERT_EQ(server.status(), RPC_S_OK);
    Client client({}, endpoint);
    const auto expect = [&client](const std::string& bytes, const std::string& expected) {
        false_service::nextAnswer = bytes;
        EXPECT_EQ(asked([&] { return client.GetUUID(4); }), expected) << bytes.size();
        EXPECT_EQ(asked([&] { return client.BigDataServiceCall("{}", 4); }), expected) << bytes.size();
    };
    for (const auto& [what, bytes, status] : false_service::kFalseAnswers) {
        expect(bytes, std::to_string(static_cast<std::int32_t>(status)));
        expect(false_service::kTrueAnswer, "abc");
    }
    false_service::nextAnswer = false_service::number(1) + std::string(100, 'x');
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
