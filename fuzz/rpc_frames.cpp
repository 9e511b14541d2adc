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

void Copy(const wchar_t* text, wchar_t* output, std::int32_t size) {
    Expect(size > 0, "a buffer without room");
    const std::size_t length = Length(text), room = static_cast<std::size_t>(size);
    if (length < room) {
        std::wmemcpy(output, text, length + 1);
    }
    Expect(output[room - 1] == L'\0', "a buffer that is not cleared");
}

// Procedures that touch all that they are given, so that the sanitizers see what is wrong with it.
platform::RpcProcedures Procedures() {
    const auto text = [](platform::RpcContext context, std::int64_t cookie) {
        Use(context);
        platform::callback_text("\x80\xFFtext", 0, cookie);
    };
    const auto flag = [](platform::RpcContext context, std::uint8_t on, std::int64_t cookie) {
        Use(context);
        Expect(on <= 1, "a flag that is none");
        platform::callback_flag(on, 7, cookie);
    };
    const auto integer = [](platform::RpcContext context, std::int64_t value, std::int64_t cookie) {
        Use(context);
        platform::callback_test_data(value, cookie);
    };
    platform::RpcProcedures p{};
    p.RemoteOpen = []() -> platform::RpcContext { return ++opened, new int(1); };
    p.RemoteClose = [](platform::RpcContext context) { ++closed, delete static_cast<int*>(context); };
    p.GetTestDataFunc = p.SetBatteryHealth = integer;
    p.GetModelName = p.GetFamilyName = p.GetChassisTypes = p.GetProductName = p.GetBatteryHealthMode = text;
    p.GetQuietFanMode = p.GetSystemInfoData = p.GetVersionString = p.GetMainSwitchByUser = text;
    p.GetSerialNumber = [](platform::RpcContext, std::int64_t) { throw std::runtime_error("\xFF"); };
    p.SetQuietFan = p.SetMainSwitchByUser = flag;
    p.SetAppFolder = [](platform::RpcContext, const wchar_t* path, std::int64_t) { Length(path); };
    p.SetMyZorvPP = [](platform::RpcContext, const wchar_t* account, const wchar_t* name, const wchar_t* version,
                       const wchar_t* time, std::uint8_t, std::int32_t* result, std::int64_t) {
        *result = static_cast<std::int32_t>(Length(account) + Length(name) + Length(version) + Length(time));
    };
    p.GetUUID = [](platform::RpcContext, wchar_t* output, std::int32_t size, std::int64_t) {
        Copy(L"\U0001F600 uuid", output, size);
    };
    p.BigDataServiceCall = [](platform::RpcContext, const wchar_t* input, wchar_t* output, std::int32_t size,
                              std::int64_t) { Copy(input, output, size); };
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
