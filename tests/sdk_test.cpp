// The client library against a server that says what a test wants, well or ill formed. The library's way to the real
// service is zorvctl's, with its tests.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <semaphore>
#include <thread>

#include "base/json.h"
#include "platform/machine.h"
#include "platform/stand_in/machine_socket.h"
#include "support/machine.h"
#include "zorvalis_client.h"

namespace {

using namespace zorvalis_client;
using zorvalis::Json;

// Serves one connection after the other. The script gets each message and says what is sent for it, as it stands;
// without that it hangs up.
class ScriptedServer {
public:
    using Script = std::function<std::optional<std::string>(const Json& message)>;

    explicit ScriptedServer(Script script)
        : script_(std::move(script)), listener_(platform::listen_at("run/scripted", 0)), thread_([this] { Run(); }) {}
    ~ScriptedServer() {
        ::shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
    }

    std::string Path() const { return platform::machine_folder() + "/run/scripted"; }

private:
    void Run() {
        for (pollfd wait = {listener_.get(), POLLIN, 0}; ::poll(&wait, 1, -1) > 0 && (wait.revents & POLLHUP) == 0;) {
            Serve(platform::Descriptor(::accept(listener_.get(), nullptr, nullptr)));
        }
    }
    void Serve(const platform::Descriptor& peer) {
        std::string in;
        char bytes[4096];
        for (ssize_t count; (count = ::recv(peer.get(), bytes, sizeof bytes, 0)) > 0;) {
            in.append(bytes, static_cast<std::size_t>(count));
            for (std::size_t end; (end = in.find('\n')) != std::string::npos; in.erase(0, end + 1)) {
                const std::optional<std::string> reply = script_(zorvalis::ParseJson(in.substr(0, end)));
                if (!reply) {
                    return;
                }
                ::send(peer.get(), reply->data(), reply->size(), MSG_NOSIGNAL);
            }
        }
    }

    Script script_;
    platform::Descriptor listener_;
    std::thread thread_;
};

std::string Answer(const Json& message, const Json& result) {
    return zorvalis::DumpJson({{"jsonrpc", "2.0"}, {"id", message["id"]}, {"result", result}}) + "\n";
}

std::string Callback(const char* method, const Json& parameters) {
    return zorvalis::DumpJson({{"jsonrpc", "2.0"}, {"method", method}, {"params", parameters}}) + "\n";
}

// Opens and closes contexts; the script has the other messages.
ScriptedServer::Script Opening(ScriptedServer::Script script) {
    return [script](const Json& message) {
        return message["method"] == "RemoteOpen"    ? Answer(message, {{"context", 77}})
               : message["method"] == "RemoteClose" ? Answer(message, nullptr)
                                                    : script(message);
    };
}

template <class Call>
std::int32_t StatusOf(Call call, const std::string& piece = "") {
    try {
        call();
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find(piece), std::string::npos) << error.what();
        return error.status;
    }
    return 0;
}

TEST(Sdk, RunsCallbacksBeforeTheirCallReturnsAndRefusesCallsFromThem) {
    const TestMachine machine;
    const std::int64_t cookie = -0x7FFFFFFFFFFFFFFF;
    Json seen;
    const ScriptedServer server(Opening([&](const Json& message) -> std::string {
        seen = message;
        const Json tail = {{"result", 5}, {"function", 9}, {"cookie", message["params"]["cookie"]}};
        return Callback("CallbackFlag", tail) + Callback("CallbackTestData", tail) +
               Callback("CallbackOfALaterService", tail) + Answer(message, nullptr);
    }));
    std::string heard;
    Client* self = nullptr;
    std::int32_t refused = 0;
    Callbacks callbacks;
    callbacks.flag = [&](bool result, auto...) { heard += result ? "flag, " : "no flag, "; };
    callbacks.testData = [&](std::int64_t result, std::int64_t back) {
        heard += std::to_string(result) + (back == cookie ? " with its cookie" : " with another cookie");
        refused = StatusOf([&] { self->GetModelName(1); }, "inside a callback");
        throw std::runtime_error("a callback that fails");
    };
    Client(Callbacks(), server.Path()).GetModelName(1);  // nobody wants to hear
    Client client(callbacks, server.Path());
    self = &client;
    client.SetBatteryHealth(80, cookie);
    EXPECT_EQ(heard, "flag, 5 with its cookie");
    EXPECT_EQ(refused, 1791);
    EXPECT_EQ(zorvalis::DumpJson(seen), R"({"id":2,"jsonrpc":"2.0","method":"SetBatteryHealth",)"
                                        R"("params":{"context":77,"cookie":-9223372036854775807,"value":80}})");
    EXPECT_EQ(StatusOf([&] { client.BigDataServiceCall("\xFF"); }, "UTF-8"), 1113);
}

TEST(Sdk, GivesEachThreadItsOwnAnswerInWhateverOrderTheyCome) {
    const TestMachine machine;
    Json first;
    const ScriptedServer server(Opening([&](const Json& message) -> std::string {
        const auto echo = [](const Json& call) { return Answer(call, {{"output", call["params"]["input"]}}); };
        if (first.is_null()) {
            first = message;
            return "";
        }
        return echo(message) + echo(std::exchange(first, nullptr));
    }));
    Client client({}, server.Path());
    for (const char* round : {"1", "2"}) {
        const auto ask = [&](const std::string& text) { return client.BigDataServiceCall(text); };
        auto one = std::async(std::launch::async, ask, std::string("one") + round);
        auto two = std::async(std::launch::async, ask, std::string("two") + round);
        EXPECT_EQ(one.get() + two.get(), std::string("one") + round + "two" + round);
    }
}

TEST(Sdk, EndsEveryCallOfALostConnection) {
    const TestMachine machine;
    int calls = 0;
    const ScriptedServer server(Opening([&](const Json&) -> std::optional<std::string> {
        return ++calls < 2 ? std::make_optional("") : std::nullopt;
    }));
    Client client({}, server.Path());
    auto other = std::async(std::launch::async, [&] { return StatusOf([&] { client.GetUUID(); }, "lost"); });
    EXPECT_EQ(StatusOf([&] { client.GetModelName(1); }, "lost"), 1726);
    EXPECT_EQ(other.get(), 1726);
    EXPECT_EQ(StatusOf([&] { client.GetModelName(1); }, "lost"), 1726);
}

TEST(Sdk, TellsAFaultFromWhatIsNoAnswer) {
    const TestMachine machine;
    std::string reply;
    const ScriptedServer server(Opening([&](const Json&) { return reply; }));
    const struct {
        std::string reply;
        std::int32_t status;
        const char* piece;
    } cases[] = {
        {R"({"jsonrpc":"2.0","id":2,"error":{"code":-32000,"message":"it broke"}})", -32000, "it broke"},
        {R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"no JSON"}})", -32700, "no JSON"},
        {R"({"jsonrpc":"2.0","id":2,"error":{"code":0,"message":"no code"}})", 1728, "no code"},
        {R"({"jsonrpc":"2.0","id":null,"error":{"code":0,"message":"none"}})", 1728, "none"},
        {R"({"jsonrpc":"2.0","id":2,"result":{"output":5}})", 1728, "GetUUID"},
        {R"({"jsonrpc":"2.0","id":2e0,"result":{"output":""}})", 1728, "no message: a number is"},
        {R"({"method":"CallbackText","params":{"result":1,"function":0,"cookie":1}})", 1728, "no message"},
        {std::string(100000, '['), 1728, "no message"},
        {std::string(17 << 20, 'x'), 1728, "no message"},
    };
    for (const auto& each : cases) {
        Client client({}, server.Path());
        reply = each.reply + "\n";
        EXPECT_EQ(StatusOf([&] { client.GetUUID(); }, each.piece), each.status) << each.reply.substr(0, 80);
    }
}

// Each way in which a call ends that the server leaves unanswered until the next one comes.
TEST(Sdk, GivesUpACallAndIgnoresItsLateAnswer) {
    const TestMachine machine;
    std::counting_semaphore arrived(0);
    std::string late;
    const ScriptedServer server(Opening([&](const Json& message) -> std::string {
        const std::string answer = Answer(message, {{"output", "now"}});
        if (message["method"] != "GetModelName") {
            return std::exchange(late, "") + answer;
        }
        late += answer;
        arrived.release();
        return "";
    }));
    auto client = std::make_unique<Client>(Callbacks(), server.Path());
    const auto call = [each = client.get()] { return StatusOf([each] { each->GetModelName(1); }); };
    client->SetLimit(std::chrono::milliseconds(1));
    EXPECT_EQ(call(), ZORVALIS_TIMED_OUT);
    client->SetLimit(std::chrono::hours(10000));
    EXPECT_EQ(client->GetUUID(), "now");
    static_cast<void>(arrived.try_acquire());  // unless it was given up before it was sent
    for (const bool closes : {false, true}) {
        auto one = std::async(std::launch::async, call), two = std::async(std::launch::async, call);
        arrived.acquire();
        arrived.acquire();
        closes ? client.reset() : client->Cancel();
        EXPECT_EQ(one.get() + two.get(), 2 * ZORVALIS_CANCELLED);
        EXPECT_TRUE(closes || client->GetUUID() == "now");
    }
}

TEST(Sdk, IsNotHeldUpByAServerThatDoesNotAcceptOrAnswerOrRead) {
    const TestMachine machine;
    Options options;
    options.limit = std::chrono::milliseconds(10);
    {
        const ScriptedServer silent(Opening([](const Json&) { return ""; }));
        options.endpoint = silent.Path();
        EXPECT_EQ(StatusOf([&] { Client({}, options).GetUUID(); }), ZORVALIS_TIMED_OUT);
    }
    options.endpoint = platform::machine_folder() + "/run/silent";
    const auto listener = platform::listen_at("run/silent", 0);
    EXPECT_EQ(StatusOf([&] { Client({}, options); }), ZORVALIS_TIMED_OUT);
    EXPECT_EQ(::listen(listener.get(), 0), 0);
    EXPECT_EQ(StatusOf([&] { Client({}, options); }, "takes the connection"), ZORVALIS_TIMED_OUT);

    std::binary_semaphore arrived(0), reads(0);
    int received = 0;
    const ScriptedServer server(Opening([&](const Json& message) {
        if (message["method"] == "GetModelName") {
            arrived.release();
            reads.acquire();
        }
        received += message["method"] == "SetAppFolder";
        return Answer(message, {{"output", "ready"}});
    }));
    auto client = std::make_unique<Client>(Callbacks(), server.Path());
    for (const bool closes : {false, true}) {
        client->SetLimit(std::chrono::milliseconds(0));
        auto held = std::async(std::launch::async, [&] { return StatusOf([&] { client->GetModelName(1); }); });
        arrived.acquire();
        client->SetLimit(options.limit);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(StatusOf([&] { client->SetAppFolder(std::string(1 << 20, 'x'), 1); }), ZORVALIS_TIMED_OUT);
        }
        if (closes) {
            client.reset();
        }
        reads.release();
        EXPECT_EQ(held.get(), closes ? ZORVALIS_CANCELLED : 0);
        if (!closes) {
            client->SetLimit(std::chrono::milliseconds(0));
            EXPECT_EQ(client->GetUUID(), "ready");
            EXPECT_LE(received, 1) << "what was given up before it was sent";
        }
    }
}

TEST(Sdk, WaitsForAServiceThatStarts) {
    const TestMachine machine;
    Options options;
    options.endpoint = platform::machine_folder() + "/run/scripted";
    for (const int wait : {0, 1}) {
        options.wait = std::chrono::milliseconds(wait);
        EXPECT_EQ(StatusOf([&] { Client({}, options); }, "nobody listens"), ZORVALIS_NO_SERVICE);
    }
    for (const auto& wait : {std::chrono::milliseconds::max(), std::chrono::milliseconds(1 << 30)}) {
        options.wait = wait;
        auto opening = std::async(std::launch::async, [&] { return Client({}, options).GetUUID(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // so that it tries in vain, mostly
        const ScriptedServer server(Opening([](const Json& each) { return Answer(each, {{"output", "here"}}); }));
        EXPECT_EQ(opening.get(), "here");
    }
}

TEST(Sdk, IsCancelledAndNotClosedByItsCallbackAndRefusesNulls) {
    const TestMachine machine;
    const ScriptedServer server(Opening([](const Json&) {
        return Callback("CallbackFlag", {{"result", 255}, {"function", 3}, {"cookie", 4}});
    }));
    std::pair<ZorvalisClient*, std::int32_t> self;  // and how the callback's closing ended
    ZorvalisCallbacks callbacks = {sizeof callbacks, &self, nullptr, nullptr, nullptr, nullptr};
    callbacks.flag = [](void* user, std::int32_t result, std::int32_t, std::int64_t) {
        auto& [own, closed] = *static_cast<decltype(self)*>(user);
        closed = result == 1 ? ZorvalisClose(own) : 0;
        ZorvalisCancel(own);
        throw 1;
    };
    const std::string path = server.Path();
    const ZorvalisOptions options = {sizeof options, 0, 0, path.c_str()};
    auto& [client, closed] = self;
    ASSERT_EQ(ZorvalisOpen(&options, &callbacks, &client), 0);
    EXPECT_EXIT(std::_Exit(ZorvalisCancel(client) == ZORVALIS_LOST ? ZorvalisClose(client) : 1),
                testing::ExitedWithCode(0), "");
    EXPECT_EQ(ZorvalisGetBatteryHealthMode(client, 4), ZORVALIS_CANCELLED);
    EXPECT_EQ(closed, ZORVALIS_IN_CALLBACK);
    EXPECT_EQ(ZorvalisSetAppFolder(client, nullptr, 4), ZORVALIS_BAD_ARGUMENT);
    EXPECT_EQ(ZorvalisGetUUID(client, 64, nullptr), ZORVALIS_BAD_ARGUMENT);
    EXPECT_EQ(ZorvalisClose(client), 0);
}

TEST(Sdk, CutsLongWordsBetweenCharacters) {
    for (std::string path : {"/", "/x"}) {
        for (int i = 0; i < 300; ++i) {
            path += "ä";
        }
        EXPECT_EQ(StatusOf([&] { Client({}, path); }, path.substr(0, 500)), 206);
        EXPECT_EQ(std::string(ZorvalisErrorText()).size() % 2, path.size() % 2);
    }
}

}  // namespace
