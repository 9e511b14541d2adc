// The stand-in machine's local endpoint (FuzzRpcFrames): whatever lines a client sends, the procedures must get sound
// arguments, each answer must follow the protocol, and each context must be closed once.
#include <cwchar>
#include <set>
#include <stdexcept>

#include "base/json.h"
#include "platform/linux/rpc_call.h"
#include "platform/linux/rpc_frame.h"
#include "platform/rpc_callback.h"
#include "surroundings.h"
#include "zorvalis_procedures.h"

namespace {

using zorvalis::Json;

int opened = 0, closed = 0;

void Expect(bool holds, const char* what) {
    if (!holds) {
        Finding(what);
    }
}

// A procedure must only get a context that is open.
void Use(platform::RpcContext context) {
    Expect(*static_cast<int*>(context) == 1, "a context that is not open");
}

std::size_t Length(const wchar_t* text) {
    return text != nullptr ? std::wcslen(text) : 0;
}

// Uses all that a procedure is given. An output gets the latest text, or one with a character of two units.
struct User {
    const wchar_t* text = L"\U0001F600 uuid";
    std::size_t length = 0;
    wchar_t* output = nullptr;

    void Take(const wchar_t* given) {
        length += Length(given);
        text = given != nullptr ? given : text;
    }
    void Take(wchar_t* room) { output = room; }
    void Take(std::int32_t size) {
        Expect(size > 0, "a buffer without room");
        const std::size_t taken = Length(text), room = static_cast<std::size_t>(size);
        if (taken < room) {
            std::wmemcpy(output, text, taken + 1);
        }
        Expect(output[room - 1] == L'\0', "a buffer that is not cleared");
    }
    void Take(std::int32_t* result) { *result = static_cast<std::int32_t>(length); }
    void Take(std::uint8_t flag) { platform::callback_flag(flag, 7, 1); }
    void Take(std::int64_t number) { platform::callback_test_data(number, number); }
};

// Procedures that touch all that they are given, so that the sanitizers see what is wrong with it.
platform::RpcProcedures Procedures() {
    platform::RpcProcedures p{};
    p.RemoteOpen = []() -> platform::RpcContext { return ++opened, new int(1); };
    p.RemoteClose = [](platform::RpcContext context) { ++closed, delete static_cast<int*>(context); };
#define USE(name, ...)                                             \
    p.name = [](platform::RpcContext context, auto... arguments) { \
        Use(context);                                              \
        User user;                                                 \
        (user.Take(arguments), ...);                               \
        platform::callback_text("\x80\xFFtext", 0, 1);             \
    };
    ZORVALIS_PROCEDURES(USE)
#undef USE
    p.GetSerialNumber = [](platform::RpcContext, std::int64_t) { throw std::runtime_error("\xFF"); };
    return p;
}

// The code of an answer: 0 for a result, else the error's number. A form that is not the protocol's is a finding.
std::int32_t CodeOf(const std::string& line) {
    const Json answer = zorvalis::ParseJson(line);
    Expect(line.find('\n') == std::string::npos && answer.size() == 3 && answer.at("jsonrpc") == "2.0" &&
               answer.contains("id") && answer.contains("result") != answer.contains("error"),
           "no answer of the protocol");
    const std::int32_t code = answer.contains("error") ? answer["error"].at("code").get<std::int32_t>() : 0;
    static const std::set<std::int32_t> kCodes = {0, -32700, -32600, -32601, -32602, -32000};
    Expect(kCodes.count(code) == 1, "a code that is not known");
    return code;
}

}  // namespace

std::int32_t FuzzRpcFrames(std::string_view bytes) {
    static const platform::RpcProcedures kProcedures = Procedures();
    const int before = opened;
    closed = 0;
    std::int32_t result = 0;
    {
        platform::RpcContexts contexts;
        const platform::RpcSend send = [](const std::string& line) {
            const Json callback = zorvalis::ParseJson(line);
            Expect(!callback.contains("id") && callback.at("params").contains("cookie"), "no callback");
        };
        while (!bytes.empty()) {
            const std::size_t end = std::min(bytes.find('\n'), bytes.size());
            const std::string answer =
                platform::make_rpc_call(kProcedures, contexts, std::string(bytes.substr(0, end)), send);
            result = answer.empty() ? result : CodeOf(answer);
            bytes.remove_prefix(std::min(end + 1, bytes.size()));
        }
    }
    Expect(closed == opened - before, "a context that is not closed once");
    return result;
}
