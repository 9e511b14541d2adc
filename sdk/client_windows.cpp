// The client on Windows: each procedure through the generated stub. The RPC runtime runs a callback on the thread that
// waits in the call; where a callback is carried in another way, it comes on a thread of its own, and the cookie says
// which call it belongs to.
#include <windows.h>

#include <algorithm>
#include <list>
#include <mutex>
#include <utility>

#include "platform/error.h"
#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/rpc_guard.h"
#include "platform/windows/wide.h"
#include "zorvalis_client.h"
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

std::wstring wide(std::uint32_t code_page, const char* text) {
    const int size = platform::multi_byte_to_wide(code_page, text, -1, nullptr, 0);
    if (size == 0) {
        throw Error("a text of the call is no UTF-8", static_cast<std::int32_t>(platform::last_error()));
    }
    std::wstring result(static_cast<std::size_t>(size), L'\0');
    platform::multi_byte_to_wide(code_page, text, -1, result.data(), size);
    result.pop_back();
    return result;
}

template <class Value>
Value received(Value value) {
    return value;
}

std::string received(const char* text) {
    return platform::to_utf8(wide(platform::kCodePageAnsi, text));
}

// Nothing leaves it: the runtime has called.
template <class Function, class... Values>
void deliver(std::int64_t cookie, Function Callbacks::*callback, const Values&... values) {
    try {
        const auto callbacks = callbacks_for(cookie);
        if (callbacks && (*callbacks).*callback) {
            ((*callbacks).*callback)(received(values)..., cookie);
        }
    } catch (...) {
        // The call goes on without it.
    }
}

std::wstring wide(const std::string& text) {
    return wide(platform::kCodePageUtf8, text.c_str());
}

void check(const char* procedure, std::uint32_t status) {
    if (status != 0) {
        throw Error(std::string(procedure) + " failed with status " + std::to_string(status),
                    static_cast<std::int32_t>(status));
    }
}

void free_binding(handle_t binding) {
    ::RpcBindingFree(&binding);
}

void free_text(RPC_WSTR text) {
    ::RpcStringFreeW(&text);
}

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

// A stub of a call, with its own name for what it says.
#define STUB(procedure) #procedure, call_##procedure

}  // namespace

struct Client::State {
    std::shared_ptr<const Callbacks> callbacks;
    ClientContext context = nullptr;

    template <class Stub, class... Arguments>
    void Call(const char* procedure, Stub* stub, Arguments... arguments) {
        check(procedure, platform::rpc_guarded([=, this] { stub(context, arguments...); }));
    }

    // One that is answered by callback.
    template <class Stub, class... Arguments>
    void CallDirectly(std::int64_t cookie, const char* procedure, Stub* stub, Arguments... arguments) {
        const Registration registration(callbacks, cookie);
        Call(procedure, stub, arguments..., cookie);
    }

    template <class Stub, class... Inputs>
    std::string CallForText(std::int32_t outputSize, const char* procedure, Stub* stub, Inputs... inputs) {
        std::wstring output(static_cast<std::size_t>(std::max(outputSize, 1)), L'\0');
        Call(procedure, stub, inputs..., output.data(), outputSize, 0);
        return platform::to_utf8(output.c_str());
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
    const platform::Owned<free_text, RPC_WSTR> ownedText(text);
    handle_t binding = nullptr;
    check("RpcBindingFromStringBindingW", ::RpcBindingFromStringBindingW(text, &binding));
    const platform::Owned<free_binding, handle_t> ownedBinding(binding);
    if (endpoint.empty()) {
        expect_local_system(binding);
    }
    check("RemoteOpen", platform::rpc_guarded([&] { call_RemoteOpen(binding, &state_->context); }));
}

Client::~Client() {
    ClientContext& context = state_->context;
    if (platform::rpc_guarded([&context] { call_RemoteClose(&context); }) != 0 && context != nullptr) {
        platform::rpc_guarded([&context] { ::RpcSsDestroyClientContext(&context); });
    }
}

std::string Client::BigDataServiceCall(const std::string& input, std::int32_t outputSize) {
    return state_->CallForText(outputSize, STUB(BigDataServiceCall), wide(input).c_str());
}

void Client::GetTestDataFunc(std::int64_t value, std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetTestDataFunc), value);
}

void Client::GetModelName(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetModelName));
}

void Client::GetSerialNumber(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetSerialNumber));
}

void Client::GetFamilyName(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetFamilyName));
}

void Client::GetChassisTypes(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetChassisTypes));
}

void Client::GetProductName(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetProductName));
}

void Client::GetBatteryHealthMode(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetBatteryHealthMode));
}

void Client::GetQuietFanMode(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetQuietFanMode));
}

void Client::GetSystemInfoData(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetSystemInfoData));
}

void Client::GetVersionString(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetVersionString));
}

void Client::GetMainSwitchByUser(std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(GetMainSwitchByUser));
}

std::string Client::GetUUID(std::int32_t outputSize) {
    return state_->CallForText(outputSize, STUB(GetUUID));
}

bool Client::SetMyZorvPP(const std::string& windowsAccount, const std::string& appName, const std::string& appVersion,
                         const std::string& timeText, bool isAgreePP) {
    LONG result = 0;
    state_->Call(STUB(SetMyZorvPP), wide(windowsAccount).c_str(), wide(appName).c_str(), wide(appVersion).c_str(),
                 wide(timeText).c_str(), isAgreePP, &result, 0);
    return result != 0;
}

void Client::SetBatteryHealth(std::int64_t value, std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(SetBatteryHealth), value);
}

void Client::SetQuietFan(bool on, std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(SetQuietFan), on);
}

void Client::SetAppFolder(const std::string& path, std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(SetAppFolder), wide(path).c_str());
}

void Client::SetMainSwitchByUser(bool on, std::int64_t cookie) {
    state_->CallDirectly(cookie, STUB(SetMainSwitchByUser), on);
}

}  // namespace zorvalis_client

using zorvalis_client::Callbacks;
using zorvalis_client::deliver;

// What the generated stubs call for the service.
extern "C" {

void serve_CallbackTestData(hyper result, hyper cookie) {
    deliver(cookie, &Callbacks::testData, result);
}

void serve_CallbackText(const char* result, LONG function, hyper cookie) {
    deliver(cookie, &Callbacks::text, result, function);
}

void serve_CallbackFlag(unsigned char result, LONG function, hyper cookie) {
    deliver(cookie, &Callbacks::flag, result != 0, function);
}

void serve_CallbackInteger(LONG result, LONG function, hyper cookie) {
    deliver(cookie, &Callbacks::integer, result, function);
}
}
