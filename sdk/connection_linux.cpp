#include "connection_linux.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/read_until.hpp>
#include <cerrno>
#include <chrono>
#include <utility>

namespace zorvalis_client {
namespace {

using zorvalis::Json;

constexpr std::size_t kLongestMessage = 16 << 20;
constexpr auto kCloseLimit = std::chrono::seconds(2);
constexpr char kLost[] = "the connection to the service was lost";

// The connection whose callback runs on this thread.
thread_local const Connection* callbackOf = nullptr;

// All calls of sockets block, so it never runs. Never destroyed, since a client may be static.
asio::io_context& Context() {
    static auto* const context = new asio::io_context;
    return *context;
}

// Why there is no connection, in the numbers of Windows.
std::int32_t StatusOf(int error) {
    const bool nobody = error == ENOENT || error == ECONNREFUSED || error == ENOTDIR;
    return nobody                               ? kNoService
           : error == EMFILE || error == ENFILE ? 4    // ERROR_TOO_MANY_OPEN_FILES
           : error == EACCES || error == EPERM  ? 5    // ERROR_ACCESS_DENIED
           : error == ENOMEM                    ? 8    // ERROR_NOT_ENOUGH_MEMORY
           : error == ENAMETOOLONG              ? 206  // ERROR_FILENAME_EXCED_RANGE
                                                : 31;               // ERROR_GEN_FAILURE
}

}  // namespace

Connection::Connection(const std::string& path, Callbacks callbacks) try
    : socket_(Context()), callbacks_(std::move(callbacks)) {
    // The kernel's own call, since asio's leaves the descriptor to programs that another thread starts meanwhile.
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    asio::error_code failure(descriptor < 0 ? errno : 0, asio::system_category());
    if (failure || socket_.assign({}, descriptor, failure)) {
        ::close(descriptor);
        throw asio::system_error(failure);
    }
    failure = asio::error::interrupted;
    while (failure == asio::error::interrupted) {
        socket_.connect(path, failure);
    }
    if (failure) {
        throw asio::system_error(failure);
    }
    reader_ = std::thread([this] { Read(); });
} catch (const asio::system_error& error) {
    const std::int32_t status = StatusOf(error.code().value());
    throw Error(status == kNoService ? "nobody listens at " + path : path + ": " + error.code().message(), status);
}

Connection::~Connection() {
    ::shutdown(socket_.native_handle(), SHUT_RDWR);
    reader_.join();
}

Json Connection::Call(const char* method, const Json& parameters) {
    if (callbackOf == this) {
        throw Error(std::string(method) + " was called from inside a callback of its client, which would wait for ever",
                    kCallInCallback);
    }
    Waiting waiting;
    const std::int64_t id = Enter(waiting);
    const bool sent = Send(id, method, parameters, 0);
    std::unique_lock lock(mutex_);
    if (sent) {
        waiting.changed.wait(lock, [&] { return waiting.done; });
    }
    waiting_.erase(id);
    if (!waiting.done || waiting.status != 0) {
        throw Error(waiting.done ? waiting.problem : kLost, waiting.done ? waiting.status : kLostConnection);
    }
    return std::move(waiting.result);
}

void Connection::CloseContext(std::int64_t context) noexcept {
    try {
        Waiting waiting;
        const std::int64_t id = Enter(waiting);
        const bool sent = Send(id, "RemoteClose", {{"context", context}}, MSG_DONTWAIT);
        std::unique_lock lock(mutex_);
        if (sent) {
            waiting.changed.wait_for(lock, kCloseLimit, [&] { return waiting.done; });
        }
        waiting_.erase(id);
    } catch (const std::exception&) {
        // The connection is lost already, and the context with it.
    }
}

// From now on an answer is taken to `waiting`; the result is the call's id.
std::int64_t Connection::Enter(Waiting& waiting) {
    const std::lock_guard lock(mutex_);
    if (lostStatus_ != 0) {
        throw Error(lostProblem_, lostStatus_);
    }
    waiting_[++lastId_] = &waiting;
    return lastId_;
}

bool Connection::Send(std::int64_t id, const char* method, const Json& parameters, int flags) {
    const Json message = {{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", parameters}};
    const std::string line = zorvalis::DumpJson(message) + "\n";
    const std::lock_guard lock(sending_);
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count =
            ::send(socket_.native_handle(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL | flags);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

void Connection::Read() {
    try {
        std::string in;
        for (asio::error_code failure;;) {
            const auto size = asio::read_until(socket_, asio::dynamic_buffer(in, kLongestMessage), '\n', failure);
            if (failure == asio::error::not_found) {
                throw std::length_error("it is too long");
            }
            if (failure && failure != asio::error::interrupted) {
                return Lose(kLostConnection, kLost);
            }
            if (!failure) {
                TakeMessage(std::string_view(in).substr(0, size - 1));
                in.erase(0, size);
            }
        }
    } catch (const std::exception& error) {
        Lose(kProtocolError, std::string("the service sent what is no message: ") + error.what());
    }
}

void Connection::TakeMessage(std::string_view line) {
    Json message = zorvalis::ParseJson(line);
    if (message.is_object() && message.contains("method")) {
        return RunCallback(message.at("method").get<std::string>(), message.at("params"));
    }
    if (message.at("id").is_null() && message.contains("error")) {
        // Which call was not understood cannot be told.
        return Lose(message["error"].at("code").get<std::int32_t>(), message["error"].at("message").get<std::string>());
    }
    const auto id = message.at("id").get<std::int64_t>();
    const std::lock_guard lock(mutex_);
    const auto found = waiting_.find(id);
    if (found == waiting_.end()) {
        throw std::invalid_argument("an answer to no call");
    }
    Waiting& waiting = *found->second;
    if (message.contains("error")) {
        waiting.problem = message["error"].at("message").get<std::string>();
        const auto code = message["error"].at("code").get<std::int32_t>();
        waiting.status = code != 0 ? code : kProtocolError;  // an error of nothing is no success
    } else {
        waiting.result = std::move(message.at("result"));
    }
    waiting.done = true;
    waiting.changed.notify_one();
}

void Connection::RunCallback(const std::string& method, const Json& parameters) const {
    const auto& result = parameters.at("result");
    const auto cookie = parameters.at("cookie").get<std::int64_t>();
    const auto run = [&](const auto& callback, auto value, auto... function) {
        callbackOf = this;
        try {
            if (callback) {
                callback(value, function..., cookie);
            }
        } catch (...) {
            // The call goes on without it.
        }
        callbackOf = nullptr;
    };
    const auto function = [&] { return parameters.at("function").get<std::int32_t>(); };
    if (method == "CallbackTestData") {
        run(callbacks_.testData, result.get<std::int64_t>());
    } else if (method == "CallbackText") {
        run(callbacks_.text, result.get<std::string>(), function());
    } else if (method == "CallbackFlag") {
        run(callbacks_.flag, result.get<std::int32_t>() != 0, function());
    } else if (method == "CallbackInteger") {
        run(callbacks_.integer, result.get<std::int32_t>(), function());
    }
}

void Connection::Lose(std::int32_t status, const std::string& problem) {
    ::shutdown(socket_.native_handle(), SHUT_RDWR);
    const std::lock_guard lock(mutex_);
    lostStatus_ = status;
    lostProblem_ = problem;
    for (const auto& [id, waiting] : waiting_) {
        if (!waiting->done) {
            waiting->status = status;
            waiting->problem = problem;
            waiting->done = true;
            waiting->changed.notify_one();
        }
    }
}

}  // namespace zorvalis_client
