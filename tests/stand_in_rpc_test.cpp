// The local endpoint of the stand-in machine: what its socket carries, and how clients end.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <condition_variable>
#include <cwchar>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/machine.h"
#include "platform/rpc_callback.h"
#include "platform/rpc_endpoint.h"
#include "platform/stand_in/line_client.h"
#include "platform/stand_in/rpc_limits.h"
#include "support/machine.h"

namespace platform {
namespace {

constexpr char kSocket[] = "run/Endpoint";

// What the procedures of these tests note, and what they wait for.
struct Book {
    std::mutex mutex;
    std::condition_variable changed;
    int opened = 0, closed = 0, begun = 0, allowed = 0;
    std::string last;

    void Change(const std::function<void()>& change) {
        const std::lock_guard guard(mutex);
        change();
        changed.notify_all();
    }
    void Wait(const std::function<bool()>& reached) {
        std::unique_lock guard(mutex);
        EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(20), reached));
    }
    template <class Value>
    Value Get(Value Book::*member) {
        const std::lock_guard guard(mutex);
        return this->*member;
    }
    // A call that runs until so many are allowed to end.
    void Hold() {
        std::unique_lock guard(mutex);
        ++begun;
        changed.notify_all();
        changed.wait(guard, [this] { return allowed > 0; });
        --allowed;
    }
};

Book* book = nullptr;

void note(std::string text) {
    book->Change([&] { book->last = std::move(text); });
}

void copy(const wchar_t* text, wchar_t* output, std::int32_t size) {
    if (std::wcslen(text) < static_cast<std::size_t>(size)) {
        std::wcscpy(output, text);
    }
}

constexpr char kWords[] = "caf\xE9 \x80";  // in code page 1252

RpcProcedures procedures() {
    RpcProcedures p{};
    p.RemoteOpen = []() -> RpcContext {
        book->Change([] { ++book->opened; });
        return new int(1);
    };
    p.RemoteClose = [](RpcContext context) {
        delete static_cast<int*>(context);
        book->Change([] { ++book->closed; });
    };
    p.GetTestDataFunc = [](RpcContext, std::int64_t value, std::int64_t cookie) { callback_test_data(value, cookie); };
    p.GetSerialNumber = [](RpcContext, std::int64_t) { throw std::runtime_error(kWords); };
    p.GetFamilyName = [](RpcContext, std::int64_t) { throw std::uint32_t{5}; };
    p.GetChassisTypes = [](RpcContext, std::int64_t) {};
    p.GetProductName = [](RpcContext, std::int64_t cookie) {  // more than a socket holds
        for (int i = 0; i < 8; ++i) {
            callback_text(std::string(1 << 16, 'x').c_str(), 13, cookie);
        }
    };
    p.SetMyZorvPP = [](RpcContext, const wchar_t* account, const wchar_t* name, const wchar_t* version,
                       const wchar_t* time, std::uint8_t agrees, std::int32_t* result, std::int64_t cookie) {
        const bool named = name != nullptr && version != nullptr && std::wstring(name) + version == L"bc";
        *result = account == nullptr && named && time == nullptr && agrees == 255 && cookie == INT64_MIN ? 4 : 5;
    };
    p.GetUUID = [](RpcContext, wchar_t* output, std::int32_t size, std::int64_t) {
        copy(L"ab\U0001F600", output, size);
    };
    p.SetBatteryHealth = [](RpcContext context, std::int64_t, std::int64_t) {
        book->Hold();
        EXPECT_EQ(*static_cast<int*>(context), 1);
    };
    p.SetQuietFan = [](RpcContext, std::uint8_t on, std::int64_t) { note("fan " + std::to_string(on)); };
    p.BigDataServiceCall = [](RpcContext, const wchar_t* input, wchar_t* output, std::int32_t size, std::int64_t) {
        copy(input, output, size);
    };
    return p;
}

RpcStatus start() {
    return RpcEndpoint({L"Endpoint", L"Zorv.Test", 10, 1234}, procedures()).status();
}

// A client with one context, number 1.
class Client : public LineClient {
public:
    Client() {
        EXPECT_TRUE(open(kSocket, 20));
        EXPECT_EQ(Ask(R"({"jsonrpc":"2.0","id":0,"method":"RemoteOpen"})"),
                  R"({"id":0,"jsonrpc":"2.0","result":{"context":1}})");
    }
    std::string Receive() {
        std::string line;
        return receive(line) ? line : "the connection has ended";
    }
    std::string Ask(const std::string& line) { return send(line) ? Receive() : "the connection has ended"; }
    void Send(const std::string& method, const std::string& params = "") { send(Line(method, params)); }
    std::string Call(const std::string& method, const std::string& params = "") { return Ask(Line(method, params)); }

private:
    static std::string Line(const std::string& method, const std::string& params) {
        return R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":{"context":1,"cookie":7)" + params +
               "}}";
    }
};

constexpr char kDone[] = R"({"id":1,"jsonrpc":"2.0","result":null})";

class StandInRpc : public testing::Test {
protected:
    explicit StandInRpc(const RpcLimits& limits = {}) {
        book = &book_;
        set_rpc_limits(limits);
        EXPECT_EQ(start(), 0U);
        listener_ = std::thread([] { EXPECT_EQ(listen_for_rpc(1, 1234), 0U); });
    }
    ~StandInRpc() override {
        stop_rpc_endpoint();
        listener_.join();
        book_.Wait([this] { return book_.closed == book_.opened; });  // each context, by its rundown or before
        set_rpc_limits({});
    }

    const TestMachine machine_;
    Book book_;
    std::thread listener_;
};

TEST_F(StandInRpc, AnswersEachFrameByItsOwnRules) {
    const std::string deep(100000, '[');
    const auto frame = [](const std::string& rest) { return R"({"jsonrpc":"2.0","id":1,)" + rest + "}"; };
    const auto data = [&](const std::string& params) {
        return frame(R"("method":"GetChassisTypes","params":{)" + params + "}");
    };
    const auto uuid = [&](const std::string& size) {
        return frame(R"("method":"GetUUID","params":{"context":1,"cookie":1,"outputSize":)" + size + "}");
    };
    const auto consent = [&](const std::string& params) {
        return frame(R"("method":"SetMyZorvPP","params":{"context":1,"cookie":-9223372036854775808,)" + params + "}");
    };
    struct Case {
        const char* name;
        std::string line, expected;  // a part of the answer
    } cases[] = {
        {"no JSON", "{", R"("code":-32700)"},
        {"deeply nested", frame(R"("method":"RemoteOpen","params":{"x":)" + deep), R"("code":-32700)"},
        {"no UTF-8", frame("\"method\":\"\xFF\""), R"("code":-32700)"},
        {"no object", "[{}]", R"("code":-32600)"},
        {"no method", frame(R"("methods":1)"), R"("code":-32600)"},
        {"an id that is none", R"({"jsonrpc":"2.0","id":[],"method":"RemoteOpen"})", R"("id":null,)"},
        {"an id that is text", R"({"jsonrpc":"2.0","id":"é","method":"Nothing"})", R"("id":"é",)"},
        {"an unknown method", frame(R"("method":"remoteopen")"), R"("code":-32601)"},
        {"params by position", frame(R"("method":"GetChassisTypes","params":[1,2])"), R"("code":-32602)"},
        {"the null context", data(R"("context":0,"cookie":1)"), R"("code":-32602)"},
        {"an unknown context", data(R"("context":2,"cookie":1)"), R"("code":-32602)"},
        {"no cookie", data(R"("context":1)"), R"("code":-32602)"},
        {"a cookie too large", data(R"("context":1,"cookie":9223372036854775808)"), R"("code":-32602)"},
        {"another cookie", data(R"("context":1,"cookie":"")"), "cookie is an integer from -9223372036854775808 to "},
        {"texts, also null ones", consent(R"("flag":255,"timeText":null,"appVersion":"c","appName":"b")"),
         R"({"result":4})"},
        {"a byte too large", consent(R"("flag":256)"), R"("Invalid params: flag is an integer from 0 to 255")"},
        {"a byte below zero", consent(R"("flag":-1)"), "flag is an integer from 0 to 255"},
        {"a number for a text", consent(R"("appName":1)"), "appName is a text"},
        {"no text", frame(R"("method":"SetAppFolder","params":{"context":1,"cookie":1,"path":null})"),
         "path is missing"},
        {"no room", uuid("0"), R"("code":-32602)"},
        {"too much room", uuid("1048577"), R"("code":-32602)"},
        {"room for characters, not for units", uuid("4"), R"({"output":""})"},
        {"room for units", uuid("5"), "{\"output\":\"ab\U0001F600\"}"},
    };
    Client client;
    for (const Case& c : cases) {
        EXPECT_NE(client.Ask(c.line).find(c.expected), std::string::npos) << c.name;
    }
    client.send(R"({"jsonrpc":"2.0","method":"SetQuietFan","params":{"context":1,"cookie":1,"flag":1}})");
    book_.Wait([this] { return book_.last == "fan 1"; });  // without an answer
    EXPECT_EQ(client.Call("GetTestDataFunc", R"(,"value":5)"),
              R"({"jsonrpc":"2.0","method":"CallbackTestData","params":{"cookie":7,"result":5}})");
    EXPECT_EQ(client.Receive(), kDone);
    EXPECT_NE(client.Call("GetSerialNumber").find(R"({"code":-32000,"message":"café €"})"), std::string::npos);
    EXPECT_NE(client.Call("GetFamilyName").find(R"({"code":-32000,"message":"error 5"})"), std::string::npos);
    const std::string large(1000000, 'x');
    EXPECT_EQ(client.Call("BigDataServiceCall", R"(,"outputSize":1000001,"input":")" + large + "\"").size(),
              large.size() + 47);
}

TEST_F(StandInRpc, EndsEachContextOnceAndNeverUnderACall) {
    {
        Client client;
        client.Send("SetBatteryHealth", R"(,"value":80)");
        book_.Wait([this] { return book_.begun == 1; });
        EXPECT_EQ(client.Call("RemoteClose"), kDone) << "while another call uses it";
        EXPECT_NE(client.Call("RemoteClose").find("-32602"), std::string::npos);
        EXPECT_NE(client.Call("GetChassisTypes").find("-32602"), std::string::npos);
        EXPECT_EQ(book_.Get(&Book::closed), 0);
        book_.Change([this] { ++book_.allowed; });
        EXPECT_EQ(client.Receive(), kDone);
        book_.Wait([this] { return book_.closed == 1; });
    }
    {
        Client other;
        std::optional<Client> dying(std::in_place);
        dying->Send("SetBatteryHealth", R"(,"value":60)");
        book_.Wait([this] { return book_.begun == 2; });
        dying.reset();
        EXPECT_EQ(other.Call("GetChassisTypes"), kDone);
        EXPECT_EQ(book_.Get(&Book::closed), 1);
        book_.Change([this] { ++book_.allowed; });
        book_.Wait([this] { return book_.closed == 2; });
        EXPECT_EQ(other.Call("RemoteClose"), kDone);
        EXPECT_EQ(book_.Get(&Book::closed), 3);
    }
}

TEST(StandInRpcClients, AreCutOffWhenTheyDoNotRead) {
    struct Limited : StandInRpc {
        explicit Limited(const RpcLimits& limits) : StandInRpc(limits) {}
        void TestBody() override {}
        Book& Notes() { return book_; }
    };
    using std::chrono::milliseconds, std::chrono::hours;
    for (const RpcLimits& limits : {RpcLimits{milliseconds(1), 1 << 30}, RpcLimits{hours(1), 1 << 16},
                                    RpcLimits{hours(1), 1 << 30, hours(1), 1 << 16}}) {
        Limited endpoint(limits);
        Client idle, unread;
        unread.Send("GetProductName");
        endpoint.Notes().Wait([&] { return endpoint.Notes().closed == 1; });
        EXPECT_EQ(idle.Call("GetChassisTypes"), kDone);
    }
}

TEST(StandInRpcEndpoint, IsOpenToEveryoneOnceUntilItIsStopped) {
    const TestMachine machine;
    Book notes;
    book = &notes;
    ASSERT_EQ(start(), 0U);
    EXPECT_EQ(start(), 1740U);
    struct stat status {};
    EXPECT_EQ(::stat((machine_folder() + "/" + kSocket).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFSOCK | 0666U);
    stop_rpc_endpoint();
    EXPECT_EQ(listen_for_rpc(1, 1234), 0U) << "the stop came first";
}

}  // namespace
}  // namespace platform
