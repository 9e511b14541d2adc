#include "connection_linux.h"

#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <utility>

#include "platform/linux/windows_error.h"
#include "platform/stand_in/machine_socket.h"

namespace zorvalis_client {
namespace {

using zorvalis::Json;

constexpr std::size_t kLongestMessage = 16 << 20;
constexpr auto kCloseLimit = std::chrono::seconds(2);
constexpr char kLost[] = "the connection to the service was lost";

// The connection whose callback runs on this thread.
thread_local const Connection* callbackOf = nullptr;

}  // namespace

Connection::Connection(const std::string& path, Callbacks callbacks)
    : socket_(platform::connect_to_path(path, 0)), callbacks_(std::move(callbacks)) {
    if (!socket_) {
        const bool nobody = errno == ENOENT || errno == ECONNREFUSED || errno == ENOTDIR;
        const std::int32_t status = nobody ? kNoService : static_cast<std::int32_t>(platform::windows_error(errno));
        throw Error(nobody ? "nobody listens at " + path : path + ": " + std::strerror(errno), status);
    }
    reader_ = std::thread([this] { Read(); });
}

Connection::~Connection() {
    ::shutdown(socket_.get(), SHUT_RDWR);
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
        const auto send = [&] {
            return ::send(socket_.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL | flags);
        };
        const ssize_t count = platform::retry(send);
        if (count < 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void Connection::Read() {
    try {
        std::string in;
        char bytes[16384];
        for (;;) {
            const ssize_t count = platform::retry([&] { return ::recv(socket_.get(), bytes, sizeof bytes, 0); });
            if (count <= 0) {
                return Lose(kLostConnection, kLost);
            }
            in.append(bytes, static_cast<std::size_t>(count));
            TakeLines(in, in.size() - static_cast<std::size_t>(count));
        }
    } catch (const std::exception& error) {
        Lose(kProtocolError, std::string("the service sent what is no message: ") + error.what());
    }
}

// What is before `fresh` holds no line end.
void Connection::TakeLines(std::string& in, std::size_t fresh) {
    std::size_t begin = 0;
    for (std::size_t end = in.find('\n', fresh); end != std::string::npos; end = in.find('\n', begin)) {
        TakeMessage(std::string_view(in).substr(begin, end - begin));
        begin = end + 1;
    }
    in.erase(0, begin);
    if (in.size() > kLongestMessage) {
        throw std::length_error("it is too long");
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
        waiting.status = message["error"].at("code").get<std::int32_t>();
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
    ::shutdown(socket_.get(), SHUT_RDWR);
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
