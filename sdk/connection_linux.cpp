#include "connection_linux.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/post.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <cerrno>
#include <utility>

namespace zorvalis_client {
namespace {

using zorvalis::Json;

constexpr std::size_t kLongestMessage = 16 << 20;
constexpr char kLost[] = "the connection to the service was lost";

// The connection whose callback runs on this thread.
thread_local const Connection* callbackOf = nullptr;

// Why there is no connection, in the numbers of Windows.
std::int32_t StatusOf(int error) {
    const bool nobody = error == ENOENT || error == ECONNREFUSED || error == ENOTDIR;
    return nobody                               ? ZORVALIS_NO_SERVICE
           : error == ETIMEDOUT                 ? ZORVALIS_TIMED_OUT
           : error == EMFILE || error == ENFILE ? 4                       // ERROR_TOO_MANY_OPEN_FILES
           : error == EACCES || error == EPERM  ? 5                       // ERROR_ACCESS_DENIED
           : error == ENOMEM || error == EAGAIN ? ZORVALIS_OUT_OF_MEMORY  // the second: no thread
           : error == ENAMETOOLONG              ? 206                     // ERROR_FILENAME_EXCED_RANGE
                                                : 31;                                  // ERROR_GEN_FAILURE
}

// While a server's queue is full the kernel lets a connection wait for as long as a send may.
int Connect(int descriptor, const std::string& path, Deadline deadline) {
    const asio::local::stream_protocol::endpoint endpoint(path);
    do {
        if (deadline != Deadline::max()) {
            const auto rest = std::chrono::ceil<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
            if (rest.count() <= 0) {
                return ETIMEDOUT;
            }
            const timeval limit = {rest.count() / 1000000, rest.count() % 1000000};
            ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        }
        if (::connect(descriptor, endpoint.data(), static_cast<socklen_t>(endpoint.size())) == 0) {
            return 0;
        }
    } while (errno == EINTR);
    return errno == EAGAIN ? ETIMEDOUT : errno;
}

}  // namespace

Connection::Connection(const std::string& path, const ZorvalisCallbacks& callbacks, Deadline deadline) try
    : callbacks_(callbacks) {
    // The kernel's own call, since asio's leaves the descriptor to programs that another thread starts meanwhile.
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    asio::error_code failure(descriptor < 0 ? errno : 0, asio::system_category());
    if (failure || socket_.assign({}, descriptor, failure)) {
        ::close(descriptor);
        throw asio::system_error(failure);
    }
    const int error = Connect(descriptor, path, deadline);
    if (error != 0) {
        throw asio::system_error(asio::error_code(error, asio::system_category()));
    }
    Read();
    thread_ = std::thread([this] { Run(); });
} catch (const asio::system_error& error) {
    const std::int32_t status = StatusOf(error.code().value());
    throw Failure(status == ZORVALIS_NO_SERVICE  ? "nobody listens at " + path
                  : status == ZORVALIS_TIMED_OUT ? path + ": nobody takes the connection"
                                                 : path + ": " + error.code().message(),
                  status);
}

Connection::~Connection() {
    context_.stop();
    thread_.join();
}

Json Connection::Call(const char* method, const Json& parameters, Deadline deadline) {
    const std::int64_t id = ++lastId_;
    std::string line =
        zorvalis::DumpJson({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", parameters}}) + "\n";
    Waiting waiting;
    std::unique_lock lock(mutex_);
    if (lostStatus_ != 0) {
        throw Failure(lostProblem_, lostStatus_);
    }
    if (!isWriting_) {
        asio::post(context_, [this] { Write(); });
        isWriting_ = true;
    }
    outgoing_.emplace(id, std::move(line));
    waiting_.emplace(id, &waiting);
    if (!waiting.changed.wait_until(lock, deadline, [&] { return waiting.done; })) {
        waiting.status = ZORVALIS_TIMED_OUT;
    }
    // Who has given up sends nothing more; a line that is being written goes on, and an answer to it is not waited for.
    waiting_.erase(id);
    outgoing_.erase(id);
    if (waiting.status != 0) {
        throw Failure(!waiting.problem.empty() ? waiting.problem
                      : waiting.status == ZORVALIS_TIMED_OUT
                          ? std::string(method) + " had no answer within its time limit"
                      : waiting.status == ZORVALIS_CANCELLED ? std::string(method) + " was given up"
                                                             : lostProblem_,
                      waiting.status);
    }
    return std::move(waiting.result);
}

void Connection::Cancel() {
    const std::lock_guard lock(mutex_);
    EndAll(ZORVALIS_CANCELLED);
}

bool Connection::InCallback() const {
    return callbackOf == this;
}

void Connection::Waiting::End(std::int32_t code) {
    status = code;
    done = true;
    changed.notify_one();
}

// The thread.
void Connection::Run() {
    try {
        context_.run();
    } catch (const std::bad_alloc&) {
        Lose(ZORVALIS_OUT_OF_MEMORY, "there is no memory");
    } catch (const std::exception& error) {
        Lose(ZORVALIS_PROTOCOL_ERROR, "the service sent what is no message: ", error.what());
    }
}

void Connection::Read() {
    asio::async_read_until(socket_, asio::dynamic_buffer(in_, kLongestMessage), '\n',
                           [this](const asio::error_code& failure, std::size_t size) {
                               if (failure == asio::error::not_found) {
                                   throw std::length_error("it is too long");
                               }
                               if (failure) {
                                   return Lose(ZORVALIS_LOST, kLost);
                               }
                               TakeMessage(std::string_view(in_).substr(0, size - 1));
                               in_.erase(0, size);
                               Read();
                           });
}

// Writes the lines that wait, one after the other.
void Connection::Write() {
    {
        const std::lock_guard lock(mutex_);
        isWriting_ = !outgoing_.empty();
        if (!isWriting_) {
            return;
        }
        line_ = std::move(outgoing_.begin()->second);
        outgoing_.erase(outgoing_.begin());
    }
    asio::async_write(socket_, asio::buffer(line_), [this](const asio::error_code& failure, std::size_t) {
        if (failure) {
            return Lose(ZORVALIS_LOST, kLost);
        }
        Write();
    });
}

void Connection::TakeMessage(std::string_view line) {
    Json message = zorvalis::ParseJson(line);
    if (message.is_object() && message.contains("method")) {
        return RunCallback(message.at("method").get<std::string>(), message.at("params"));
    }
    if (message.at("id").is_null() && message.contains("error")) {
        // Which call was not understood cannot be told.
        return Lose(Integer<std::int32_t>(message["error"].at("code")),
                    message["error"].at("message").get_ref<const std::string&>().c_str());
    }
    const auto id = Integer<std::int64_t>(message.at("id"));
    if (id < 1 || id > lastId_) {
        throw std::invalid_argument("an answer to no call");
    }
    const std::lock_guard lock(mutex_);
    const auto found = waiting_.find(id);
    if (found == waiting_.end() || found->second->done) {
        return;  // the call was given up
    }
    Waiting& waiting = *found->second;
    if (message.contains("error")) {
        const auto code = Integer<std::int32_t>(message["error"].at("code"));
        waiting.problem = message["error"].at("message").get<std::string>();
        waiting.End(code != 0 ? code : ZORVALIS_PROTOCOL_ERROR);  // an error must not look like success
    } else {
        waiting.result = std::move(message.at("result"));
        waiting.End(0);
    }
}

void Connection::RunCallback(const std::string& method, const Json& parameters) const {
    const auto& result = parameters.at("result");
    const auto cookie = Integer<std::int64_t>(parameters.at("cookie"));
    const auto run = [&](const auto callback, auto value, auto... function) {
        if (callback == nullptr) {
            return;
        }
        callbackOf = this;
        try {
            callback(callbacks_.user, value, function..., cookie);
        } catch (...) {
            // The call goes on without it.
        }
        callbackOf = nullptr;
    };
    const auto function = [&] { return Integer<std::int32_t>(parameters.at("function")); };
    if (method == "CallbackTestData") {
        run(callbacks_.testData, Integer<std::int64_t>(result));
    } else if (method == "CallbackText") {
        run(callbacks_.text, result.get_ref<const std::string&>().c_str(), function());
    } else if (method == "CallbackFlag") {
        run(callbacks_.flag, Integer<std::int32_t>(result) != 0 ? 1 : 0, function());
    } else if (method == "CallbackInteger") {
        run(callbacks_.integer, Integer<std::int32_t>(result), function());
    }
}

// With the mutex held.
void Connection::EndAll(std::int32_t status) {
    for (const auto& [id, waiting] : waiting_) {
        if (!waiting->done) {
            waiting->End(status);
        }
    }
}

// No more is read or written. What came first says why.
void Connection::Lose(std::int32_t status, const char* problem, const char* detail) noexcept {
    asio::error_code ignored;
    socket_.close(ignored);
    const std::lock_guard lock(mutex_);
    if (lostStatus_ == 0) {
        lostStatus_ = status != 0 ? status : ZORVALIS_PROTOCOL_ERROR;
        try {
            lostProblem_ = std::string(problem) + detail;
        } catch (const std::bad_alloc&) {
            // The status is left to say it.
        }
    }
    EndAll(lostStatus_);
}

}  // namespace zorvalis_client
