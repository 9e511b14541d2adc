// One connection to the service's socket: JSON-RPC 2.0, a message a line. Calls come from any thread. A thread of its
// own writes them, reads what the service sends, hands each answer to the call that waits for it, and runs the
// callbacks; what comes before an answer has run before the call returns.
#pragma once

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "base/json.h"
#include "session.h"

namespace zorvalis_client {

// Throws std::domain_error for what is no whole number, or none that fits: the JSON library would cut it to some other.
template <class Value>
Value Integer(const zorvalis::Json& json) {
    if (json.is_number_unsigned() ? !std::in_range<Value>(json.get<std::uint64_t>())
                                  : !json.is_number_integer() || !std::in_range<Value>(json.get<std::int64_t>())) {
        throw std::domain_error("a number is not whole or does not fit");
    }
    return json.get<Value>();
}

using Deadline = std::chrono::steady_clock::time_point;  // Deadline::max(): none

class Connection {
public:
    // Throws Failure, as Call does.
    Connection(const std::string& path, const ZorvalisCallbacks& callbacks, Deadline deadline);
    // No callback comes any more when it returns. No call runs.
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // The answer's result.
    zorvalis::Json Call(const char* method, const zorvalis::Json& parameters, Deadline deadline);

    // Ends every call that runs.
    void Cancel();

    // Whether this thread runs a callback of this connection.
    bool InCallback() const;

private:
    // A call, for as long as its thread waits.
    struct Waiting {
        bool done = false;
        zorvalis::Json result;
        std::int32_t status = 0;
        std::string problem;  // in the service's words
        std::condition_variable changed;

        void End(std::int32_t code);
    };

    void Run();
    void Read();
    void Write();
    void TakeMessage(std::string_view line);
    void RunCallback(const std::string& method, const zorvalis::Json& parameters) const;
    void EndAll(std::int32_t status);
    void Lose(std::int32_t status, const char* problem, const char* detail = "") noexcept;

    const ZorvalisCallbacks callbacks_;
    std::atomic<std::int64_t> lastId_ = 0;

    // The thread's alone.
    asio::io_context context_{1};
    asio::local::stream_protocol::socket socket_{context_};
    std::string in_, line_;  // what has come, and what is being written

    std::mutex mutex_;  // guards what follows
    std::map<std::int64_t, Waiting*> waiting_;
    std::map<std::int64_t, std::string> outgoing_;  // lines that wait until others are written
    bool isWriting_ = false;
    std::int32_t lostStatus_ = 0;
    std::string lostProblem_;

    std::thread thread_;
};

}  // namespace zorvalis_client
