// The endpoint is a socket of lines (line_server.h). The server's thread makes the calls (rpc_call.h) by itself, one
// after the other, since most are shorter than waking another thread; as long as one takes long, RpcThreads make the
// others.
#include "platform/rpc_endpoint.h"

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/line_server.h"
#include "platform/linux/rpc_call.h"
#include "platform/linux/rpc_frame.h"
#include "platform/linux/rpc_threads.h"
#include "platform/linux/wide.h"
#include "platform/stand_in/rpc_limits.h"
#include "platform/stand_in/step_failure.h"

namespace platform {
namespace {

constexpr RpcStatus kAddressInUse = 10048;
constexpr RpcStatus kInvalidEndpoint = 1706;
constexpr RpcStatus kAlreadyListening = 1713;
constexpr RpcStatus kNoProtocols = 1714;
constexpr RpcStatus kDuplicateEndpoint = 1740;

constexpr unsigned kEveryone = 0666;
constexpr rlim_t kDescriptors = 1 << 16;
constexpr std::size_t kMostConnections = 4096;
constexpr std::size_t kMostWaiting = 2048;   // calls of one connection
constexpr std::size_t kMostContexts = 4096;  // of one connection

// One connection and its contexts. Held by the endpoint and by each running call; the contexts close with the last
// holder.
struct Session {
    RpcContexts contexts{kMostContexts};
    std::atomic<bool> gone{false};
};

// Lives until its last call has returned, which may be long after the stop.
struct Endpoint : std::enable_shared_from_this<Endpoint> {
    explicit Endpoint(LineLimits limits) : server(std::move(limits)) {}

    std::optional<std::string> take(LineServer::Connection connection, const std::string& line);
    void end(LineServer::Connection connection);
    std::string call(LineServer::Connection connection, Session& session, const std::string& line);

    RpcProcedures procedures{};
    bool listening = false;                                               // guarded by the mutex of Shared
    std::map<LineServer::Connection, std::shared_ptr<Session>> sessions;  // used by the server's thread only
    LineServer server;
};

struct Shared {
    std::mutex mutex;
    std::condition_variable unregistered;
    RpcLimits limits;
    std::shared_ptr<Endpoint> endpoint;
    bool used = false;  // an endpoint has been started once
};

// Never destroyed: threads may still use it while the process ends.
Shared& shared() {
    static auto* const state = new Shared;
    return *state;
}

// On the server's thread. Answers with an error when there is no thread for a call.
std::optional<std::string> Endpoint::take(LineServer::Connection connection, const std::string& line) {
    auto& entry = sessions[connection];
    if (entry == nullptr) {
        entry = std::make_shared<Session>();
    }
    const auto session = entry;           // which may go during the call
    auto self = weak_from_this().lock();  // null while the endpoint is being destroyed
    if (self != nullptr && server.may_take_long()) {
        return call(connection, *session, line);
    }
    const bool taken = self != nullptr && RpcThreads::get().submit([self, session, connection, line] {
        try {
            self->server.answer(connection, self->call(connection, *session, line), line.size());
        } catch (const std::bad_alloc&) {  // the client waits in vain
        }
    });
    return taken ? std::nullopt : std::optional(rpc_error_line(nullptr, kRpcFault, "no thread for the call"));
}

// The answer, empty when the call ends without one.
std::string Endpoint::call(LineServer::Connection connection, Session& session, const std::string& line) {
    try {
        const RpcSend send = [&](std::string callback) { server.send(connection, std::move(callback)); };
        return session.gone ? "" : make_rpc_call(procedures, session.contexts, line, send);
    } catch (...) {  // out of memory
        return "";
    }
}

// On the server's thread. The session is let go on a thread of RpcThreads, since closing a context may take long; if
// calls still run, the last of them closes the contexts.
void Endpoint::end(LineServer::Connection connection) {
    if (auto node = sessions.extract(connection)) {
        node.mapped()->gone = true;
        RpcThreads::get().submit([session = std::move(node.mapped())] {});
    }
}

RpcStatus failure_of(const char* step) {
    return static_cast<RpcStatus>(step_status(step));
}

// Each client takes a descriptor.
void raise_descriptor_limit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < kDescriptors) {
        limit.rlim_cur = std::min(limit.rlim_max, kDescriptors);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

LineLimits line_limits(const RpcLimits& limits) {
    LineLimits result;
    result.connections = kMostConnections;
    result.all_bytes = limits.all_bytes;
    result.line = kLongestRpcLine;
    result.waiting = kMostWaiting;
    result.waiting_bytes = kLongestRpcLine;
    result.unread_bytes = limits.unread_bytes;
    result.unread = limits.unread;
    result.too_long =
        rpc_error_line(nullptr, kRpcInvalidRequest, "Invalid Request: a message has at most 4194304 bytes");
    result.mode = kEveryone;
    result.patient = true;
    return result;
}

// Lets a thread of its own wait for the running calls and then for the server's thread.
void wait_for_the_end(std::shared_ptr<Endpoint> endpoint) {
    endpoint->server.finish();
    try {
        std::thread([endpoint] { endpoint->server.join(); }).detach();
    } catch (const std::system_error&) {
        // Without a thread, the server stops when the last holder lets the endpoint go.
    }
}

// Of the settings, the package and the queue length have no meaning here: everyone may connect to the socket.
RpcStatus start(const RpcEndpointSettings& settings, const RpcProcedures& procedures) {
    const std::string name = to_utf8(settings.name);
    if (name.empty() || name.find('/') != std::string::npos) {
        return kInvalidEndpoint;
    }
    const std::lock_guard guard(shared().mutex);
    if (const RpcStatus failure = failure_of("start_rpc_endpoint"); failure != 0 || shared().endpoint != nullptr) {
        return failure != 0 ? failure : kDuplicateEndpoint;
    }
    raise_descriptor_limit();
    auto opened = std::make_shared<Endpoint>(line_limits(shared().limits));
    opened->procedures = procedures;
    RpcThreads::get().set_limits(settings.most_calls, shared().limits.thread);
    Endpoint& endpoint = *opened;
    std::uint32_t error = endpoint.server.open("run/" + name);
    if (error == 0) {
        error =
            endpoint.server.start([&endpoint](auto connection, auto& line) { return endpoint.take(connection, line); },
                                  [&endpoint](auto connection) { endpoint.end(connection); });
    }
    if (error == 0) {
        shared().endpoint = std::move(opened);
        shared().used = true;
    }
    return error == kAddressInUse ? kDuplicateEndpoint : error;
}

}  // namespace

void set_rpc_limits(const RpcLimits& limits) {
    const std::lock_guard guard(shared().mutex);
    shared().limits = limits;
}

struct RpcEndpoint::Security {};

RpcEndpoint::RpcEndpoint(const RpcEndpointSettings& settings, const RpcProcedures& procedures)
    : status_(start(settings, procedures)) {}

RpcEndpoint::~RpcEndpoint() = default;

RpcStatus listen_for_rpc(std::uint32_t, std::uint32_t) {
    std::unique_lock guard(shared().mutex);
    const std::shared_ptr<Endpoint> endpoint = shared().endpoint;
    if (const RpcStatus failure = failure_of("listen_for_rpc"); failure != 0 || !shared().used) {
        return failure != 0 ? failure : kNoProtocols;
    }
    if (endpoint == nullptr || endpoint->listening) {
        return endpoint != nullptr ? kAlreadyListening : 0;  // 0: the endpoint was stopped before this call
    }
    endpoint->listening = true;
    shared().unregistered.wait(guard, [&] { return shared().endpoint != endpoint; });
    return 0;
}

void stop_rpc_endpoint() {
    std::shared_ptr<Endpoint> last;
    {
        const std::lock_guard guard(shared().mutex);
        last = std::exchange(shared().endpoint, nullptr);
        shared().unregistered.notify_all();
    }
    if (last != nullptr) {
        wait_for_the_end(std::move(last));
    }
}

}  // namespace platform
