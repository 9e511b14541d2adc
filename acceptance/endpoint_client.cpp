#include "endpoint_client.h"

#include <windows.h>

#include <atomic>
#include <tuple>
#include <utility>

#include "platform/text.h"
#include "platform/windows/wide.h"
#include "rpc/guard.h"
#include "rpc/output_block.h"

extern "C" {
// By which proxy the stubs of tools/rpc_ndr64_client.py go out, and the two that there are.
extern MIDL_STUBLESS_PROXY_INFO* zorv_client64_proxy;
extern MIDL_STUBLESS_PROXY_INFO Zorvalis64_ProxyInfo, Zorvalis64Only_ProxyInfo;
}

namespace zorvalis::acceptance {
namespace {

thread_local const zorvalis_client::Callbacks* inCall = nullptr;  // of the call that this thread is in
std::atomic<int> strays = 0;

void Check(const char* procedure, std::uint32_t status) {
    if (status != 0) {
        throw zorvalis_client::Error(std::string(procedure) + " failed with " + std::to_string(status),
                                     static_cast<std::int32_t>(status));
    }
}

// The arguments of ZORVALIS_CALLS: what the stub is given for each, and the answer that it leaves.
template <class Value>
struct Input {
    const char* name;
    Value value;
    std::tuple<Value> Pass() const { return value; }
};

template <>
struct Input<std::string> {
    Input(const char*, const std::string& value) : text(platform::to_wide(value)) {}
    std::wstring text;
    std::tuple<const wchar_t*> Pass() const { return text.c_str(); }
};

struct Output {
    const char *answer, *name;
    std::int32_t size;
    zorvalis_rpc::OutputBlock block{size};
    std::tuple<wchar_t*, std::int32_t> Pass() { return {block.Data(), size}; }
    std::string Answer() const { return platform::to_utf8(std::wstring(block.Text().value_or(L"no end"))); }
};

struct Result {
    const char* answer;
    std::int32_t result = 0;
    std::tuple<std::int32_t*> Pass() { return &result; }
    bool Answer() const { return result != 0; }
};

std::string FromAnsi(const char* text) {
    wchar_t wide[4096] = {};  // what is longer comes out empty
    platform::multi_byte_to_wide(platform::kCodePageAnsi, text, -1, wide, 4096);
    return platform::to_utf8(wide);
}

template <class Callback, class... Values>
void Deliver(Callback zorvalis_client::Callbacks::*member, const Values&... values) {
    if (inCall == nullptr) {
        ++strays;
    } else if (inCall->*member) {
        (inCall->*member)(values...);
    }
}

}  // namespace

void NeedOfferOfNdr64(Findings& findings) {
    if (!ZORV_OFFERS_NDR64) {
        findings.Impossible("this build's service offers NDR 2.0 alone");
    }
}

std::int32_t StatusOf(const std::function<void()>& call) {
    try {
        call();
        return 0;
    } catch (const zorvalis_client::Error& error) {
        return error.status;
    }
}

zorvalis_client::Options Patient() {
    zorvalis_client::Options options;
    options.wait = std::chrono::seconds(20);
    options.limit = std::chrono::seconds(90);  // the service itself waits 60 for its jobs
    return options;
}

zorvalis_client::Callbacks Heard::Callbacks() {
    const auto number = [](std::int64_t value) { return " " + std::to_string(value); };
    return {[=, this](std::int64_t result, std::int64_t cookie) { Add("testData" + number(result) + number(cookie)); },
            [=, this](const std::string& result, std::int32_t function, std::int64_t cookie) {
                Add("text " + result + number(function) + number(cookie));
            },
            [=, this](bool result, std::int32_t function, std::int64_t cookie) {
                Add("flag" + number(result ? 1 : 0) + number(function) + number(cookie));
            },
            [=, this](std::int32_t result, std::int32_t function, std::int64_t cookie) {
                Add("integer" + number(result) + number(function) + number(cookie));
            }};
}

std::string Heard::Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, "");
}

void Heard::Add(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_ += (lines_.empty() ? "" : "; ") + line;
}

Client64::Client64(zorvalis_client::Callbacks callbacks, const std::string& endpoint, Offer offer)
    : callbacks_(new zorvalis_client::Callbacks(std::move(callbacks))) {
    zorv_client64_proxy = offer == Offer::both ? &Zorvalis64_ProxyInfo : &Zorvalis64Only_ProxyInfo;
    const Binding binding(endpoint);
    Check("binding", static_cast<std::uint32_t>(binding.status));
    Check("RemoteOpen", zorvalis_rpc::Guarded([&] { call64_RemoteOpen(binding.handle, &context_); }));
}

Client64::~Client64() {
    if (zorvalis_rpc::Guarded([this] { call64_RemoteClose(&context_); }) != 0 && context_ != nullptr) {
        zorvalis_rpc::Guarded([this] { ::RpcSsDestroyClientContext(&context_); });
    }
}

int Client64::Strays() {
    return strays;
}

template <class Answer, class Stub, class... Arguments>
Answer Client64::Ask(const char* procedure, Stub* stub, std::int64_t cookie, Arguments... arguments) {
    std::tuple<Arguments...> all(std::move(arguments)...);
    auto passed = std::apply(
        [&](auto&... each) { return std::tuple_cat(std::tuple(context_), each.Pass()..., std::tuple(cookie)); }, all);
    inCall = callbacks_.get();
    const std::uint32_t status = zorvalis_rpc::Guarded([&] { std::apply(*stub, passed); });
    inCall = nullptr;
    Check(procedure, status);
    if constexpr (!std::is_void_v<Answer>) {
        return std::get<sizeof...(Arguments) - 1>(all).Answer();
    }
}

#define DEFINE(answer, name, parameters, cookie, ...)                                \
    answer Client64::name parameters {                                               \
        return Ask<answer>(#name, call64_##name, cookie __VA_OPT__(, ) __VA_ARGS__); \
    }
ZORVALIS_CALLS(DEFINE)
#undef DEFINE

Binding::Binding(const std::string& endpoint, const std::string& options, const std::string& protocol,
                 const std::string& address) {
    std::wstring words[] = {platform::to_wide(protocol), platform::to_wide(address), platform::to_wide(endpoint),
                            platform::to_wide(options)};
    const auto given = [](std::wstring& word) {
        return word.empty() ? nullptr : reinterpret_cast<RPC_WSTR>(word.data());
    };
    RPC_WSTR text = nullptr;
    status =
        ::RpcStringBindingComposeW(nullptr, given(words[0]), given(words[1]), given(words[2]), given(words[3]), &text);
    if (status == RPC_S_OK) {
        status = ::RpcBindingFromStringBindingW(text, &handle);
        ::RpcStringFreeW(&text);
    }
}

Binding::~Binding() {
    if (handle != nullptr) {
        ::RpcBindingFree(&handle);
    }
}

}  // namespace zorvalis::acceptance

using zorvalis::acceptance::Deliver;
using zorvalis_client::Callbacks;

// What the stubs call for the server.
extern "C" {

void serve64_CallbackTestData(std::int64_t result, std::int64_t cookie) {
    Deliver(&Callbacks::testData, result, cookie);
}

void serve64_CallbackText(const char* result, std::int32_t function, std::int64_t cookie) {
    Deliver(&Callbacks::text, zorvalis::acceptance::FromAnsi(result), function, cookie);
}

void serve64_CallbackFlag(std::uint8_t result, std::int32_t function, std::int64_t cookie) {
    Deliver(&Callbacks::flag, result != 0, function, cookie);
}

void serve64_CallbackInteger(std::int32_t result, std::int32_t function, std::int64_t cookie) {
    Deliver(&Callbacks::integer, result, function, cookie);
}
}
