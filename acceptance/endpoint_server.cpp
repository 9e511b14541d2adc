#include "endpoint_server.h"

#include <windows.h>

#include <psapi.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <sstream>
#include <tuple>

#include "caller.h"
#include "kit.h"
#include "platform/rpc_callback.h"
#include "platform/rpc_endpoint.h"
#include "platform/text.h"
#include "platform/windows/rpc_interface.h"
#include "platform/windows/wide.h"
#include "polling.h"
#include "rpc/guard.h"
#include "support/import_hook.h"
#include "windows/double/capability.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kPackage[] = L"Zorv.Zorvinfo_k7rt2xw94hmpa";
constexpr int kHold = 30;          // seconds
constexpr char kHeld[] = "-held";  // behind a gate's name
constexpr DWORD kLife = 150000;    // milliseconds

struct Seen {
    std::mutex mutex;
    std::condition_variable changed;
    std::string words, caller = "{}";
    bool byNdr64 = false;
    std::uint32_t callback = 0;
    int opened = 0, closed = 0, meeting = 0, most = 0;
    bool isMeetingOver = false;
    std::atomic<bool> closesSlowly = false;
};

Seen& Own() {
    static auto* const own = new Seen;  // never destroyed: the runtime's threads run while the process ends
    return *own;
}

std::string Word(const wchar_t* value) {
    return "|" + platform::to_utf8(value);
}

std::string Word(std::int64_t value) {
    return "|" + std::to_string(value);
}

std::string Word(std::int32_t*) {
    return "";
}

void Fill(std::int32_t* value) {
    *value = kEchoNumber;
}

void Fill(auto) {}

// The cookies are others than the call's, which a client knows by the thread alone.
void CallBack(std::int64_t cookie) {
    platform::callback_test_data(INT64_MIN, cookie + 1);
    platform::callback_text("B\xe4r", 3, cookie + 2);
    platform::callback_flag(0xf5, -6, cookie + 3);
    const std::uint32_t status = zorvalis_rpc::Guarded([=] { call_CallbackInteger(-8, 9, cookie + 4); });
    const std::lock_guard lock(Own().mutex);
    Own().callback = status;
}

template <class... Values>
void Echo(const char* name, platform::RpcContext, Values... values) {
    {
        const std::lock_guard lock(Own().mutex);
        Own().words = name + (Word(values) + ... + std::string());
        Own().byNdr64 = platform::ServedCall::is_by_ndr64();
    }
    (Fill(values), ...);
    CallBack(std::get<sizeof...(Values) - 1>(std::tuple(values...)));  // the cookie is the last
}

std::string StateText() {
    Seen& own = Own();
    DWORD handles = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &handles);
    const std::lock_guard lock(own.mutex);
    return Json{{"seen", own.words},        {"caller", own.caller}, {"ndr64", own.byNdr64},
                {"callback", own.callback}, {"opened", own.opened}, {"closed", own.closed},
                {"meeting", own.meeting},   {"most", own.most},     {"handles", handles}}
        .dump();
}

// Waits until so many calls are in here, and says how many there were at most.
std::string Meet(int wanted, int seconds) {
    Seen& own = Own();
    std::unique_lock lock(own.mutex);
    own.most = std::max(own.most, ++own.meeting);
    own.changed.notify_all();
    own.isMeetingOver |= !own.changed.wait_for(lock, std::chrono::seconds(seconds),
                                               [&] { return own.most >= wanted || own.isMeetingOver; });
    --own.meeting;
    return std::to_string(own.most);
}

std::string Hold(const std::string& name) {
    const platform::OwnedHandle held(
        ::OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, platform::to_wide(name + kHeld).c_str()));
    ::ReleaseSemaphore(held.get(), 1, nullptr);
    return Gate::WaitFor(name, kHold) ? "late" : "nobody opened";
}

// Whether the middle of the room for the answer takes memory although nobody has written there, and is zero.
std::string Pages(const wchar_t* output, std::int32_t size) {
    PSAPI_WORKING_SET_EX_INFORMATION middle{const_cast<wchar_t*>(output + size / 2), {}};
    const bool asked = ::K32QueryWorkingSetEx(::GetCurrentProcess(), &middle, sizeof middle) != FALSE;
    const bool isZero = std::all_of(output, output + size, [](wchar_t each) { return each == 0; });
    return !asked ? "not known"
                  : std::string(middle.VirtualAttributes.Valid != 0 ? "taken" : "free") +
                        (isZero ? " and zero" : " and not zero");
}

std::string Answer(const std::string& words, const wchar_t* output, std::int32_t size, std::int64_t cookie) {
    std::istringstream input(words);
    std::string what, name;
    int number = 0;
    input >> what;
    if (what == "state") {
        return StateText();
    } else if (what == "meet") {
        int seconds = 0;
        input >> number >> seconds;
        return Meet(number, seconds);
    } else if (what == "hold") {
        input >> name;
        return Hold(name);
    } else if (what == "pages") {
        return Pages(output, size);
    } else if (what == "caller") {
        return CallerOfThisCall();
    } else if (what == "note") {
        const std::string caller = CallerOfThisCall();
        const std::lock_guard lock(Own().mutex);
        Own().caller = caller;
    } else if (what == "forget") {
        // As if the client had closed this context, by its number, while it still has it.
        input >> number;
        ClientContextRundown(reinterpret_cast<ClientContext>(static_cast<std::uintptr_t>(number)));
    } else if (what == "slow") {
        Own().closesSlowly = true;
    } else if (what == "throw") {
        throw std::runtime_error("as asked");
    } else if (what == "text") {
        Echo("BigDataServiceCall", nullptr, std::int64_t{size}, cookie);
        return platform::to_utf8(kEchoText) + words.substr(5);
    }
    return "";
}

void Control(platform::RpcContext, const wchar_t* input, wchar_t* output, std::int32_t size, std::int64_t cookie) {
    const std::wstring answer = platform::to_wide(Answer(platform::to_utf8(input), output, size, cookie));
    if (answer.size() < static_cast<std::size_t>(size)) {
        answer.copy(output, answer.size());
    }
}

BOOL WINAPI Derive(const wchar_t*, PSID** groups, DWORD* groupCount, PSID** sids, DWORD* count) {
    return doubles::derive_capabilities(1, groups, groupCount, sids, count);
}

FARPROC WINAPI Find(HMODULE library, const char* name) {
    static const auto find = IMPORTED(GetProcAddress);
    return doubles::is_derive(name) ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(Derive)) : find(library, name);
}

int Serve(const std::vector<std::string>& words) {
    static platform::RpcProcedures procedures{};
    procedures.RemoteOpen = []() -> platform::RpcContext {
        const std::lock_guard lock(Own().mutex);
        ++Own().opened;
        return &Own();
    };
    procedures.RemoteClose = [](platform::RpcContext) {
        ::Sleep(Own().closesSlowly ? 50 : 0);  // meanwhile a second close of the same context may arrive
        const std::lock_guard lock(Own().mutex);
        ++Own().closed;
    };
#define SET(name, ...) procedures.name = [](auto... values) { Echo(#name, values...); };
    ZORVALIS_PROCEDURES(SET)
#undef SET
    procedures.GetUUID = [](platform::RpcContext context, wchar_t* output, std::int32_t size, std::int64_t cookie) {
        Echo("GetUUID", context, size, cookie);
        std::wstring_view(kEchoText).copy(output, static_cast<std::size_t>(size) - 1);
    };
    procedures.BigDataServiceCall = Control;
    const std::wstring name = platform::to_wide(words.at(0));
    const platform::RpcEndpointSettings settings = {name.c_str(), kPackage, 10, 1234};
    auto endpoint = std::make_unique<platform::RpcEndpoint>(settings, procedures);
    if (endpoint->status() == ERROR_PROC_NOT_FOUND && IsWine()) {
        HOOK(GetProcAddress, Find);  // Wine derives no capability: a made-up one stands for it
        endpoint = std::make_unique<platform::RpcEndpoint>(settings, procedures);
    }
    if (endpoint->status() != 0) {
        return static_cast<int>(endpoint->status());
    }
    TellReady();
    ::Sleep(kLife);  // until its step ends it
    platform::stop_rpc_endpoint();
    return 0;
}

const Part kServer("rpc-server", Serve);

std::string NewName(const char* what) {
    static std::atomic<int> count = 0;
    return std::string("zorv-acceptance-") + what + "-" + std::to_string(::GetCurrentProcessId()) + "-" +
           std::to_string(++count);
}

}  // namespace

EchoServer::EchoServer(Findings& findings) : endpoint_(NewName("rpc")), child_(findings, kServer.name, {endpoint_}) {}

EchoServer::~EchoServer() {
    Forget();
}

void EchoServer::Forget() {
    if (control_ != nullptr) {
        zorvalis_rpc::Guarded([this] { ::RpcSsDestroyClientContext(&control_); });
        control_ = nullptr;
    }
}

std::string EchoServer::Ask(const std::string& words) {
    constexpr std::int32_t kRoom = 1 << 15;
    std::wstring room(kRoom, L'\0');
    const std::wstring input = platform::to_wide(words);
    std::uint32_t status = 0;
    for (int i = 0; i < 2; ++i) {
        if (control_ == nullptr) {
            const Binding binding(endpoint_);
            status = zorvalis_rpc::Guarded([&] { call_RemoteOpen(binding.handle, &control_); });
        }
        if (control_ != nullptr) {
            status =
                zorvalis_rpc::Guarded([&] { call_BigDataServiceCall(control_, input.c_str(), room.data(), kRoom, 0); });
        }
        if (status == 0) {
            return platform::to_utf8(room.c_str());
        }
        Forget();
    }
    throw std::runtime_error("the kit's own server does not answer: " + ErrorText(status));
}

Json EchoServer::State() {
    return Json::parse(Ask("state"));
}

bool EchoServer::Until(const char* member, int wanted) {
    return acceptance::Until(20, [&] { return State().at(member).get<int>() == wanted; });
}

Gate::Gate()
    : name_(NewName("gate")),
      event_(::CreateEventW(nullptr, TRUE, FALSE, platform::to_wide(name_).c_str())),
      held_(::CreateSemaphoreW(nullptr, 0, MAXLONG, platform::to_wide(name_ + kHeld).c_str())) {}

bool Gate::WaitFor(const std::string& name, int seconds) {
    const platform::OwnedHandle gate(::OpenEventW(SYNCHRONIZE, FALSE, platform::to_wide(name).c_str()));
    return ::WaitForSingleObject(gate.get(), static_cast<DWORD>(seconds) * 1000) == WAIT_OBJECT_0;
}

void ImpossibleUnderWine(Findings& findings, bool refused, const std::string& why) {
    if (refused && IsWine()) {
        findings.Impossible(why);
    }
}

}  // namespace zorvalis::acceptance
