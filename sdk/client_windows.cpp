// The client on Windows: each procedure through the generated stub. The RPC runtime runs a callback on the thread that
// waits in the call; where a callback is carried in another way, it comes on a thread of its own, and the cookie says
// which call it belongs to.
#include <windows.h>

#include <algorithm>
#include <list>
#include <mutex>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "rpc/guard.h"
#include "rpc/output_block.h"
#include "zorvalis_client.h"
#include "zorvalis_procedures.h"
#include "zorvalis_rpc.h"

namespace zorvalis_client {
namespace {

constexpr char kEndpoint[] = "ZorvHelpRpcEndpoint";

struct RunningCall {
    std::shared_ptr<const Callbacks> callbacks;
    std::int64_t cookie;
    DWORD thread = ::GetCurrentThreadId();
};

std::mutex mutex;
std::list<RunningCall> runningCalls;

// For the time of a call.
class Registration {
public:
    Registration(const std::shared_ptr<const Callbacks>& callbacks, std::int64_t cookie) {
        const std::lock_guard lock(mutex);
        runningCalls.push_front({callbacks, cookie});
        call_ = runningCalls.begin();
    }
    ~Registration() {
        const std::lock_guard lock(mutex);
        runningCalls.erase(call_);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    std::list<RunningCall>::iterator call_;
};

// The latest call of this thread, else the latest with that cookie. They outlive a call that is cut off meanwhile.
std::shared_ptr<const Callbacks> callbacks_for(std::int64_t cookie) {
    const std::lock_guard lock(mutex);
    const auto find = [](const auto& wanted) { return std::find_if(runningCalls.begin(), runningCalls.end(), wanted); };
    auto found = find([](const RunningCall& call) { return call.thread == ::GetCurrentThreadId(); });
    if (found == runningCalls.end()) {
        found = find([cookie](const RunningCall& call) { return call.cookie == cookie; });
    }
    return found == runningCalls.end() ? nullptr : found->callbacks;
}

std::wstring wide(UINT codePage, const char* text) {
    const DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
    const int size = ::MultiByteToWideChar(codePage, flags, text, -1, nullptr, 0);
    if (size == 0) {
        throw Error("a text of the call is no UTF-8", static_cast<std::int32_t>(::GetLastError()));
    }
    std::wstring result(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(codePage, flags, text, -1, result.data(), size);
    result.pop_back();
    return result;
}

// UTF-8; what is no character becomes U+FFFD.
std::string narrow(const std::wstring& text) {
    const auto length = static_cast<int>(text.size());
    std::string result(text.size() * 3, '\0');
    result.resize(::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), length * 3, nullptr, nullptr));
    return result;
}

template <class Value>
Value received(Value value) {
    return value;
}

std::string received(const char* text) {
    return narrow(wide(CP_ACP, text));
}

// Nothing leaves it: the runtime has called.
template <class Function, class... Values>
void deliver(std::int64_t cookie, Function Callbacks::*callback, const Values&... values) {
    try {
        const auto callbacks = callbacks_for(cookie);
        if (callbacks && (*callbacks).*callback) {
            ((*callbacks).*callback)(received(values)...);
        }
    } catch (...) {
        // The call goes on without it.
    }
}

std::wstring wide(const std::string& text) {
    return wide(CP_UTF8, text.c_str());
}

void check(const char* procedure, std::uint32_t status) {
    if (status != 0) {
        throw Error(std::string(procedure) + " failed with status " + std::to_string(status),
                    static_cast<std::int32_t>(status));
    }
}

struct FreeBinding {
    using pointer = handle_t;
    void operator()(handle_t binding) const { ::RpcBindingFree(&binding); }
};

struct FreeText {
    using pointer = RPC_WSTR;
    void operator()(RPC_WSTR text) const { ::RpcStringFreeW(&text); }
};

// The service's own endpoint has to be LocalSystem's. A machine that knows no authentication cannot tell whose it is.
void expect_local_system(handle_t binding) {
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid;
    if (!::CreateWellKnownSid(WinLocalSystemSid, nullptr, sid, &size)) {
        check("CreateWellKnownSid", ::GetLastError());
    }
    RPC_SECURITY_QOS_V3_W qos{};
    qos.Version = RPC_C_SECURITY_QOS_VERSION_3;
    qos.Capabilities = RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH;
    qos.IdentityTracking = RPC_C_QOS_IDENTITY_STATIC;
    qos.ImpersonationType = RPC_C_IMP_LEVEL_IDENTIFY;
    qos.Sid = sid;
    const RPC_STATUS status =
        ::RpcBindingSetAuthInfoExW(binding, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_AUTHN_WINNT, nullptr,
                                   RPC_C_AUTHZ_NONE, reinterpret_cast<RPC_SECURITY_QOS*>(&qos));
    check("RpcBindingSetAuthInfoExW",
          status == RPC_S_UNKNOWN_AUTHN_SERVICE ? RPC_S_OK : static_cast<std::uint32_t>(status));
}

struct WideText {
    std::wstring text;
    operator const wchar_t*() const { return text.c_str(); }
};

// One argument of a call: what the stub is given for it, and where it leaves an answer.
template <class Value>
struct Input {
    const char* name;
    const Value& value;

    std::tuple<Value> Pass() const { return value; }
};

template <>
struct Input<std::string> {
    const char* name;
    const std::string& value;

    std::tuple<WideText> Pass() const { return WideText{wide(value)}; }
};

struct Output {
    const char *answer, *name;
    std::int32_t size;
    zorvalis_rpc::OutputBlock block{size};

    std::tuple<wchar_t*, std::int32_t> Pass() { return {block.Data(), size}; }
    std::string Answer() const {
        const auto text = block.Text();
        check("the end of the text", text ? RPC_S_OK : RPC_S_PROTOCOL_ERROR);
        return narrow(std::wstring(*text));
    }
};

struct Result {
    const char* answer;
    std::int32_t result = 0;

    std::tuple<std::int32_t*> Pass() { return &result; }
    bool Answer() const { return result != 0; }
};

}  // namespace

struct Client::State {
    std::shared_ptr<const Callbacks> callbacks;
    ClientContext context = nullptr;

    // The last argument has the answer. Without an answer there may be callbacks.
    template <class Answer, class Stub, class... Arguments>
    Answer Call(const char* procedure, Stub* stub, std::int64_t cookie, Arguments... arguments) {
        std::optional<Registration> registration;
        if (std::is_void_v<Answer>) {
            registration.emplace(callbacks, cookie);
        }
        auto all = std::tuple(std::move(arguments)...);
        auto passed = std::apply(
            [&](auto&... each) { return std::tuple_cat(std::tuple(context), each.Pass()..., std::tuple(cookie)); },
            all);
        check(procedure, zorvalis_rpc::Guarded([&] { std::apply(*stub, passed); }));
        if constexpr (!std::is_void_v<Answer>) {
            return std::get<sizeof...(Arguments) - 1>(all).Answer();
        }
    }
};

Client::Client(Callbacks callbacks, const std::string& endpoint) : state_(std::make_unique<State>()) {
    state_->callbacks = std::make_shared<const Callbacks>(std::move(callbacks));
    std::wstring protocol = L"ncalrpc", name = wide(endpoint.empty() ? kEndpoint : endpoint);
    // Whoever has the endpoint's name learns who calls, and may not act in the caller's name.
    std::wstring options = L"Security=Identification Static True";
    RPC_WSTR text = nullptr;
    const auto unsigned_text = [](std::wstring& words) { return reinterpret_cast<RPC_WSTR>(words.data()); };
    check("RpcStringBindingComposeW", ::RpcStringBindingComposeW(nullptr, unsigned_text(protocol), nullptr,
                                                                 unsigned_text(name), unsigned_text(options), &text));
    const std::unique_ptr<void, FreeText> ownedText(text);
    handle_t binding = nullptr;
    check("RpcBindingFromStringBindingW", ::RpcBindingFromStringBindingW(text, &binding));
    const std::unique_ptr<void, FreeBinding> ownedBinding(binding);
    if (endpoint.empty()) {
        expect_local_system(binding);
    }
    check("RemoteOpen", zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding, &state_->context); }));
}

Client::~Client() {
    ClientContext& context = state_->context;
    if (zorvalis_rpc::Guarded([&context] { call_RemoteClose(&context); }) != 0 && context != nullptr) {
        zorvalis_rpc::Guarded([&context] { ::RpcSsDestroyClientContext(&context); });
    }
}

#define DEFINE(answer, name, parameters, cookie, ...)                                       \
    answer Client::name parameters {                                                        \
        return state_->Call<answer>(#name, call_##name, cookie __VA_OPT__(, ) __VA_ARGS__); \
    }
ZORVALIS_CALLS(DEFINE)

}  // namespace zorvalis_client

using zorvalis_client::Callbacks;
using zorvalis_client::deliver;

// What the generated stubs call for the service.
extern "C" {

#define SERVE(name, function_name, member, parameters, ...) \
    void serve_##name parameters {                          \
        deliver(cookie, &Callbacks::member, __VA_ARGS__);   \
    }
ZORVALIS_CALLBACKS(SERVE)
}
