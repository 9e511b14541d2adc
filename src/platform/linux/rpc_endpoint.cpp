#include "platform/rpc_endpoint.h"

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cwchar>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/line_server.h"
#include "platform/linux/rpc_call.h"
#include "platform/linux/rpc_frame.h"
#include "platform/linux/rpc_limits.h"
#include "platform/linux/rpc_security.h"
#include "platform/linux/rpc_threads.h"
#include "platform/linux/step_failure.h"

namespace platform {
namespace {

constexpr RpcStatus kAddressInUse = 10048;
constexpr RpcStatus kProtocolNotSupported = 1703;
constexpr RpcStatus kInvalidEndpoint = 1706;
constexpr RpcStatus kAlreadyRegistered = 1712;
constexpr RpcStatus kAlreadyListening = 1713;
constexpr RpcStatus kNoProtocols = 1714;
constexpr RpcStatus kUnknownInterface = 1717;
constexpr RpcStatus kDuplicateEndpoint = 1740;

constexpr rlim_t kDescriptors = 1 << 16;
constexpr std::size_t kMostConnections = 4096;
constexpr std::size_t kMostWaiting = 2048;   // calls of one connection
constexpr std::size_t kMostContexts = 4096;  // of one connection

// One connection and its contexts, which end with it: a running call holds it, and so does the server.
struct Session {
    RpcContexts contexts{kMostContexts};
    std::atomic<bool> gone{false};
};

// From its opening to the end of the last call, which may be long after its stop.
struct Endpoint : std::enable_shared_from_this<Endpoint> {
    explicit Endpoint(LineLimits limits) : server(std::move(limits)) {}

    std::optional<std::string> take(LineServer::Connection connection, const std::string& line);
    void end(LineServer::Connection connection);
    void call(LineServer::Connection connection, Session& session, const std::string& line);

    RpcProcedures procedures{};
    bool registered = false, listening = false;                           // guarded by the mutex of Shared
    std::map<LineServer::Connection, std::shared_ptr<Session>> sessions;  // the server thread's own
    LineServer server;
};

struct Shared {
    std::mutex mutex;
    std::condition_variable unregistered;
    RpcLimits limits;
    std::shared_ptr<Endpoint> endpoint;
    bool used = false;  // there has been an endpoint
};

// Never destroyed, as threads may still ask while the process ends.
Shared& shared() {
    static auto* const state = new Shared;
    return *state;
}

std::optional<std::string> Endpoint::take(LineServer::Connection connection, const std::string& line) {
    auto& session = sessions[connection];
    if (session == nullptr) {
        session = std::make_shared<Session>();
    }
    auto self = weak_from_this().lock();  // none when nobody was there to wait for the last calls
    const bool taken =
        self != nullptr && RpcThreads::get().submit([self = std::move(self), session = session, connection, line] {
            self->call(connection, *session, line);
        });
    return taken ? std::nullopt : std::optional(rpc_error_line(nullptr, kRpcFault, "no thread for the call"));
}

// On a thread of the calls.
void Endpoint::call(LineServer::Connection connection, Session& session, const std::string& line) {
    std::string answer;
    try {
        const RpcSend send = [&](std::string callback) { server.send(connection, std::move(callback)); };
        answer = session.gone ? "" : make_rpc_call(procedures, session.contexts, line, send);
    } catch (...) {  // no memory, and no answer then
    }
    try {
        server.answer(connection, std::move(answer), line.size());
    } catch (const std::bad_alloc&) {  // the client waits until it gives up
    }
}

// The contexts are run down by its last running call, or else on a thread of the calls.
void Endpoint::end(LineServer::Connection connection) {
    if (auto node = sessions.extract(connection)) {
        node.mapped()->gone = true;
        RpcThreads::get().submit([session = std::move(node.mapped())] {});
    }
}

RpcStatus failure_of(const char* step) {
    return static_cast<RpcStatus>(step_status(step));
}

// A thousand clients are a thousand descriptors.
void raise_descriptor_limit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < kDescriptors) {
        limit.rlim_cur = std::min(limit.rlim_max, kDescriptors);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

LineLimits line_limits(const RpcLimits& limits, unsigned mode) {
    LineLimits result;
    result.connections = kMostConnections;
    result.line = kLongestRpcLine;
    result.waiting = kMostWaiting;
    result.waiting_bytes = kLongestRpcLine;
    result.unread_bytes = limits.unread_bytes;
    result.unread = limits.unread;
    result.too_long =
        rpc_error_line(nullptr, kRpcInvalidRequest, "Invalid Request: a message has at most 4194304 bytes");
    result.mode = mode;
    return result;
}

// A thread waits for the end of the calls that run, and for that of the server's thread.
void wait_for_the_end(std::shared_ptr<Endpoint> endpoint) {
    endpoint->server.finish();
    try {
        std::thread([endpoint] { endpoint->server.join(); }).detach();
    } catch (const std::system_error&) {
        // Then the server is stopped with the last who holds the endpoint.
    }
}

}  // namespace

void set_rpc_limits(const RpcLimits& limits) {
    const std::lock_guard guard(shared().mutex);
    shared().limits = limits;
}

// How many may wait to connect is the system's affair.
RpcStatus use_rpc_endpoint(const wchar_t* protocol, std::uint32_t, const wchar_t* endpoint,
                           const RpcSecurity& security) {
    const std::string name = to_utf8(endpoint);
    if (std::wcscmp(protocol, L"ncalrpc") != 0) {
        return kProtocolNotSupported;
    }
    if (name.empty() || name.find('/') != std::string::npos) {
        return kInvalidEndpoint;
    }
    const std::lock_guard guard(shared().mutex);
    if (const RpcStatus failure = failure_of("use_rpc_endpoint"); failure != 0 || shared().endpoint != nullptr) {
        return failure != 0 ? failure : kDuplicateEndpoint;
    }
    raise_descriptor_limit();
    auto opened = std::make_shared<Endpoint>(line_limits(shared().limits, security.state()->mode));
    const std::uint32_t error = opened->server.open("run/" + name);
    if (error == 0) {
        shared().endpoint = std::move(opened);
        shared().used = true;
    }
    return error == kAddressInUse ? kDuplicateEndpoint : error;
}

// Calls are served from here on, as the flags ask for; those of other machines never come.
RpcStatus register_rpc_interface(const RpcProcedures& procedures, std::uint32_t, std::uint32_t most_calls,
                                 const RpcSecurity&) {
    const std::lock_guard guard(shared().mutex);
    const RpcStatus failure = failure_of("register_rpc_interface");
    if (failure != 0 || shared().endpoint == nullptr) {
        return failure != 0 ? failure : kNoProtocols;
    }
    Endpoint& endpoint = *shared().endpoint;
    if (endpoint.registered) {
        return kAlreadyRegistered;
    }
    endpoint.procedures = procedures;
    RpcThreads::get().set_limits(most_calls, shared().limits.thread);
    const std::uint32_t error =
        endpoint.server.start([&endpoint](auto connection, auto& line) { return endpoint.take(connection, line); },
                              [&endpoint](auto connection) { endpoint.end(connection); });
    endpoint.registered = error == 0;
    return error;
}

// There are neither bindings nor a mapper: a client finds the socket by its name.
RpcStatus inquire_rpc_bindings() {
    return failure_of("inquire_rpc_bindings");
}

RpcStatus map_rpc_endpoint() {
    return failure_of("map_rpc_endpoint");
}

RpcStatus listen_for_rpc(std::uint32_t, std::uint32_t) {
    std::unique_lock guard(shared().mutex);
    const std::shared_ptr<Endpoint> endpoint = shared().endpoint;
    if (const RpcStatus failure = failure_of("listen_for_rpc"); failure != 0 || !shared().used) {
        return failure != 0 ? failure : kNoProtocols;
    }
    if (endpoint == nullptr || endpoint->listening) {
        return endpoint != nullptr ? kAlreadyListening : 0;  // the stop may have come first
    }
    endpoint->listening = true;
    shared().unregistered.wait(guard, [&] { return shared().endpoint != endpoint; });
    return 0;
}

RpcStatus unregister_rpc_interface() {
    std::shared_ptr<Endpoint> last;
    bool registered = false;
    {
        const std::lock_guard guard(shared().mutex);
        last = std::exchange(shared().endpoint, nullptr);
        registered = last != nullptr && last->registered;
        shared().unregistered.notify_all();
    }
    if (last != nullptr) {
        wait_for_the_end(std::move(last));
    }
    return registered ? 0 : kUnknownInterface;
}

RpcStatus unmap_rpc_endpoint() {
    return 0;
}

RpcStatus free_rpc_bindings() {
    return 0;
}

}  // namespace platform
