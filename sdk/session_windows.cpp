// Calls on Windows: each runs the generated stub on a thread of Windows' pool, while its caller waits for as long as it
// wants to. All that a stub reads and writes belongs to the call and lives until the service has answered, so a caller
// that has given up leaves nothing behind that a late answer could write to. The RPC runtime is not told of that:
// RpcCancelThreadEx is neither for ncalrpc nor for calls that may be called back.
//
// The runtime runs a callback on the thread that is in the stub; where a callback is carried in another way, it comes
// on another thread, and the cookie says which call it belongs to.
#include "session.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "context_windows.h"
#include "rpc/guard.h"
#include "rpc/output_block.h"

extern "C" IMAGE_DOS_HEADER __ImageBase;  // the linker's: the library or program that this is linked into

namespace zorvalis_client {
namespace {

constexpr std::uint32_t kCloseLimit = 2000;  // milliseconds

// Whom the callbacks of a session's calls are for. It outlives the session with calls that were given up.
struct Receiver {
    explicit Receiver(const ZorvalisCallbacks& given) : callbacks(given) {}

    const ZorvalisCallbacks callbacks;
    bool isClosed = false;  // these are guarded by the mutex of all calls
    int runningCallbacks = 0;
    std::condition_variable idle;
};

struct Call {
    const std::shared_ptr<Receiver> receiver;
    const std::optional<std::int64_t> cookie;  // of a call during which callbacks may come
    std::function<void()> work;                // the pool thread's alone
    std::exception_ptr failure = nullptr;      // of the work
    std::atomic<bool> isGivenUp = false;       // its caller has left
    bool hasEnded = false, isCancelled = false;
    std::condition_variable changed{};
};

// Those that run in this process, the latest last, also the ones that were given up. Never destroyed, since threads of
// the pool may still run while the process ends.
struct Calls {
    std::mutex mutex;
    std::vector<std::shared_ptr<Call>> running;
};

Calls& AllCalls() {
    static auto* const calls = new Calls;
    return *calls;
}

thread_local const Call* callOfThread = nullptr;          // that this thread of the pool makes
thread_local const Receiver* receiverOfThread = nullptr;  // whose callback runs on this thread

// A call that was given up while it waited for a thread is not made. The work goes before the call ends, since its
// context may end with it.
void CALLBACK MakeCall(PTP_CALLBACK_INSTANCE, void* argument) {
    const std::unique_ptr<std::shared_ptr<Call>> owned(static_cast<std::shared_ptr<Call>*>(argument));
    const std::shared_ptr<Call>& call = *owned;
    callOfThread = call.get();
    try {
        if (!call->isGivenUp) {
            call->work();
        }
    } catch (...) {
        call->failure = std::current_exception();
    }
    call->work = nullptr;
    callOfThread = nullptr;
    Calls& calls = AllCalls();
    const std::lock_guard lock(calls.mutex);
    std::erase(calls.running, call);
    call->hasEnded = true;
    call->changed.notify_one();
}

// False without a thread for it. The pool keeps this library loaded until the call has ended, whoever still waits.
bool HandToPool(std::unique_ptr<std::shared_ptr<Call>> call) {
    TP_CALLBACK_ENVIRON environment;
    ::InitializeThreadpoolEnvironment(&environment);
    ::SetThreadpoolCallbackRunsLong(&environment);
    ::SetThreadpoolCallbackLibrary(&environment, &__ImageBase);
    const bool isTaken = ::TrySubmitThreadpoolCallback(MakeCall, call.get(), &environment) != FALSE;
    static_cast<void>(isTaken ? call.release() : nullptr);
    return isTaken;
}

// Makes a call and waits for its end, for `limit` milliseconds at most (0: any time). Throws what the work has thrown.
void MakeAndWait(const char* procedure, const std::shared_ptr<Call>& call, std::uint32_t limit) {
    auto handed = std::make_unique<std::shared_ptr<Call>>(call);
    Calls& calls = AllCalls();
    std::unique_lock lock(calls.mutex);
    calls.running.push_back(call);
    lock.unlock();
    const bool isTaken = HandToPool(std::move(handed));
    lock.lock();
    if (!isTaken) {
        std::erase(calls.running, call);
        throw Failure(std::string(procedure) + " had no thread of Windows' pool", ZORVALIS_OUT_OF_MEMORY);
    }
    const auto isOver = [&] { return call->hasEnded || call->isCancelled; };
    if (limit == 0) {
        call->changed.wait(lock, isOver);
    } else {
        call->changed.wait_for(lock, std::chrono::milliseconds(limit), isOver);
    }
    if (!call->hasEnded) {
        call->isGivenUp = true;
        throw call->isCancelled ? Failure(std::string(procedure) + " was given up", ZORVALIS_CANCELLED)
                                : Failure(std::string(procedure) + " had no answer in " + std::to_string(limit) + " ms",
                                          ZORVALIS_TIMED_OUT);
    }
    if (call->failure) {
        std::rethrow_exception(call->failure);
    }
}

// The time in which a callback runs: for the latest call of this thread, else for the latest with that cookie. A
// session that is closed gets none.
class RunningCallback {
public:
    explicit RunningCallback(std::int64_t cookie) {
        Calls& calls = AllCalls();
        const std::lock_guard lock(calls.mutex);
        const auto latest = std::find_if(calls.running.rbegin(), calls.running.rend(),
                                         [cookie](const auto& call) { return call->cookie == cookie; });
        receiver_ = callOfThread != nullptr          ? callOfThread->receiver
                    : latest != calls.running.rend() ? (*latest)->receiver
                                                     : nullptr;
        if (receiver_ && receiver_->isClosed) {
            receiver_ = nullptr;
        }
        if (receiver_) {
            ++receiver_->runningCallbacks;
            receiverOfThread = receiver_.get();
        }
    }
    ~RunningCallback() {
        if (receiver_) {
            receiverOfThread = nullptr;
            const std::lock_guard lock(AllCalls().mutex);
            --receiver_->runningCallbacks;
            receiver_->idle.notify_all();
        }
    }
    RunningCallback(const RunningCallback&) = delete;
    RunningCallback& operator=(const RunningCallback&) = delete;

    const ZorvalisCallbacks* Callbacks() const { return receiver_ ? &receiver_->callbacks : nullptr; }

private:
    std::shared_ptr<Receiver> receiver_;
};

// UTF-8; what is no character becomes U+FFFD.
std::string Narrow(std::wstring_view text) {
    const auto length = static_cast<int>(text.size());
    std::string result(text.size() * 3, '\0');
    result.resize(static_cast<std::size_t>(
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), length * 3, nullptr, nullptr)));
    return result;
}

// What came with a callback, as the application gets it.
template <class Value>
struct Received {
    Value value;
    Value Get() const { return value; }
};

template <>
struct Received<std::uint8_t> {
    std::uint8_t value;
    std::int32_t Get() const { return value != 0 ? 1 : 0; }
};

template <>
struct Received<const char*> {
    explicit Received(const char* text) : utf8(Narrow(Wide(CP_ACP, text))) {}
    std::string utf8;
    const char* Get() const { return utf8.c_str(); }
};

// Nothing leaves it: the runtime has called. The guard takes what other compilers throw.
template <class Function, class... Values>
void Deliver(std::int64_t cookie, Function ZorvalisCallbacks::*member, const Values&... values) {
    try {
        const RunningCallback running(cookie);
        if (running.Callbacks() == nullptr || running.Callbacks()->*member == nullptr) {
            return;
        }
        const std::tuple received{Received<Values>{values}...};
        const auto call = [&](const auto&... each) {
            try {
                (running.Callbacks()->*member)(running.Callbacks()->user, each.Get()...);
            } catch (...) {
                // The call goes on without it.
            }
        };
        zorvalis_rpc::Guarded([&] { std::apply(call, received); });
    } catch (...) {
        // No memory for the text: the call goes on without it.
    }
}

// One argument of a call: what the stub is given for it, and where it leaves an answer. They are the call's own, and so
// are copies.
template <class Value>
struct Input {
    const char* name;
    Value value;

    std::tuple<Value> Pass() const { return value; }
};

template <>
struct Input<std::string> {
    Input(const char*, const std::string& value) : text(Wide(CP_UTF8, value.c_str())) {}
    std::wstring text;

    std::tuple<const wchar_t*> Pass() const { return text.c_str(); }
};

struct Output {
    const char *answer, *name;
    std::int32_t size;
    zorvalis_rpc::OutputBlock block{size};

    std::tuple<wchar_t*, std::int32_t> Pass() { return {block.Data(), size}; }
    std::string Answer() const {
        const auto text = block.Text();
        if (!text) {
            throw Failure("the service's answer has no end", ZORVALIS_PROTOCOL_ERROR);
        }
        return Narrow(*text);
    }
};

struct Result {
    const char* answer;
    std::int32_t result = 0;

    std::tuple<std::int32_t*> Pass() { return &result; }
    bool Answer() const { return result != 0; }
};

}  // namespace

struct Session::State {
    const std::shared_ptr<Receiver> receiver;
    std::atomic<std::uint32_t> limit = 0;
    std::shared_ptr<Context> context = std::make_shared<Context>();  // of the calls too: it ends with the last of them

    void Run(const char* procedure, std::uint32_t most, std::function<void()> work,
             std::optional<std::int64_t> cookie = {}) const {
        const std::shared_ptr<Call> call(new Call{receiver, cookie, std::move(work)});
        MakeAndWait(procedure, call, most);
    }

    // The last argument has the answer. Without an answer there may be callbacks.
    template <class Answer, class Stub, class... Arguments>
    Answer Ask(const char* procedure, Stub* stub, std::int64_t cookie, Arguments... arguments) const {
        const auto all = std::make_shared<std::tuple<Arguments...>>(std::move(arguments)...);
        const auto work = [procedure, stub, cookie, own = context, all] {
            auto passed = std::apply(
                [&](auto&... each) {
                    return std::tuple_cat(std::tuple(own->Handle()), each.Pass()..., std::tuple(cookie));
                },
                *all);
            Check(procedure, zorvalis_rpc::Guarded([&] { std::apply(*stub, passed); }));
        };
        Run(procedure, limit, work, std::is_void_v<Answer> ? std::optional(cookie) : std::nullopt);
        if constexpr (!std::is_void_v<Answer>) {
            return std::get<sizeof...(Arguments) - 1>(*all).Answer();
        }
    }
};

// A context that is opened after the limit is closed again at once.
Session::Session(const ZorvalisCallbacks& callbacks, const std::string& endpoint, std::uint32_t limit)
    : state_(new State{std::make_shared<Receiver>(callbacks)}) {
    state_->Run("RemoteOpen", limit, [context = state_->context, endpoint] { context->Open(endpoint); });
}

// The work only lets go of the context. Where a call that was given up still has it, that closes it later.
Session::~Session() {
    {
        std::unique_lock lock(AllCalls().mutex);
        state_->receiver->isClosed = true;
        state_->receiver->idle.wait(lock, [this] { return state_->receiver->runningCallbacks == 0; });
    }
    const std::uint32_t limit = state_->limit == 0 ? kCloseLimit : std::min<std::uint32_t>(state_->limit, kCloseLimit);
    try {
        state_->Run("RemoteClose", limit, [last = std::exchange(state_->context, nullptr)] {});
    } catch (const std::exception&) {
        // It ends with its work, when the service answers.
    }
}

void Session::SetLimit(std::uint32_t limit) {
    state_->limit = limit;
}

void Session::Cancel() {
    Calls& calls = AllCalls();
    const std::lock_guard lock(calls.mutex);
    for (const std::shared_ptr<Call>& call : calls.running) {
        if (call->receiver == state_->receiver) {
            call->isCancelled = true;
            call->changed.notify_one();
        }
    }
}

bool Session::IsParents() const {
    return false;
}

bool Session::InCallback() const {
    return receiverOfThread == state_->receiver.get();
}

#define DEFINE(answer, name, parameters, cookie, ...)                                      \
    answer Session::name parameters {                                                      \
        return state_->Ask<answer>(#name, call_##name, cookie __VA_OPT__(, ) __VA_ARGS__); \
    }
ZORVALIS_CALLS(DEFINE)

}  // namespace zorvalis_client

using zorvalis_client::Deliver;

// What the generated stubs call for the service.
extern "C" {

#define SERVE(name, function_name, member, parameters, ...)       \
    void serve_##name parameters {                                \
        Deliver(cookie, &ZorvalisCallbacks::member, __VA_ARGS__); \
    }
ZORVALIS_CALLBACKS(SERVE)
}
