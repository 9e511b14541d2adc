// One connection to the service's socket: JSON-RPC 2.0, a message a line. Calls come from any thread. A thread of its
// own reads what the service sends, hands each answer to the call that waits for it, and runs the callbacks; what
// comes before an answer has run before the call returns.
#pragma once

#include <asio/local/stream_protocol.hpp>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "base/json.h"
#include "zorvalis_client.h"

namespace zorvalis_client {

// The transport's statuses, in the numbers of Windows.
constexpr std::int32_t kLostConnection = 1726, kProtocolError = 1728, kCallInCallback = 1791;

class Connection {
public:
    // Throws Error, as Call does.
    Connection(const std::string& path, Callbacks callbacks);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // The answer's result.
    zorvalis::Json Call(const char* method, const zorvalis::Json& parameters);

    // Waits for a moment until the service has closed the context, which otherwise ends with the connection.
    void CloseContext(std::int64_t context) noexcept;

private:
    struct Waiting {
        bool done = false;
        zorvalis::Json result;
        std::int32_t status = 0;
        std::string problem;
        std::condition_variable changed;
    };

    std::int64_t Enter(Waiting& waiting);
    bool Send(std::int64_t id, const char* method, const zorvalis::Json& parameters, int flags);
    void Read();
    void TakeMessage(std::string_view line);
    void RunCallback(const std::string& method, const zorvalis::Json& parameters) const;
    void Lose(std::int32_t status, const std::string& problem);

    asio::local::stream_protocol::socket socket_;
    const Callbacks callbacks_;
    std::thread reader_;
    std::mutex sending_;  // held for a whole message

    std::mutex mutex_;  // guards what follows
    std::int64_t lastId_ = 0;
    std::map<std::int64_t, Waiting*> waiting_;
    std::int32_t lostStatus_ = 0;
    std::string lostProblem_;
};

}  // namespace zorvalis_client
