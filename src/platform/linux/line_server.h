// A socket in the machine's run folder to which other programs send lines, which are answered by lines. One thread
// serves all connections, so one that hangs, floods or does not read holds up nobody else; where there are too many,
// whoever has been silent for longest is cut off. A handler that takes long keeps its thread, and another one serves
// on.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace platform {

struct LineLimits {
    std::size_t connections = 256;
    std::size_t all_bytes = 256 << 20;  // that wait in the server, of all; beyond it, whoever has most is cut off
    // Of each connection. No further line is taken while so many, or so many bytes of them, wait for their answers, nor
    // while an answer is not read; the connection ends when nothing is read for the time, or too much is unread.
    std::size_t line = 1 << 16;
    std::size_t waiting = 1;
    std::size_t waiting_bytes = 1 << 16;
    std::size_t unread_bytes = 1 << 24;
    std::chrono::milliseconds unread{10000};
    std::string too_long{};  // the last answer, to a line over the limit; none when empty
    unsigned mode = 0;       // of the socket's file, 0 for what the process' mask leaves
    bool patient = false;    // handlers may take long, see `may_take_long`
};

class LineServer {
public:
    using Connection = std::uint64_t;  // from 1

    // Both are called on the server's thread. The handler's result is the answer, an empty one is not sent; without one
    // it comes by `answer`.
    using Handler = std::function<std::optional<std::string>(Connection connection, const std::string& line)>;
    using EndHandler = std::function<void(Connection connection)>;

    explicit LineServer(LineLimits limits);
    ~LineServer();  // stops it
    LineServer(const LineServer&) = delete;
    LineServer& operator=(const LineServer&) = delete;

    // The path in the machine's folder. Whatever a dead process left there is replaced. Once more, it goes on listening
    // there, and its connections end. 0 or a system error.
    std::uint32_t open(const std::string& name);
    std::uint32_t start(Handler handler, EndHandler ended = {});
    bool listens_at(const std::string& name);  // and the socket's file is still its own

    // For a handler of a patient server, which may take long from here on, and beside which the next ones may run then.
    // False when it has to return soon, since another one takes long already.
    bool may_take_long();

    // From any thread, also when the connection is gone. `size` is that of the line that is answered; `send` is for
    // lines beside the answers, and inside a handler they go before its own.
    void answer(Connection connection, std::string line, std::size_t size);
    void send(Connection connection, std::string line);

    // Calls the action on the server's thread, behind what it does now.
    void post(std::function<void()> action);

    // Takes the socket away and no further line. Connections end when their lines are answered, the thread after them.
    void finish();
    void join();

    // Takes the socket away, sends what is answered already, and closes all connections.
    void stop();

private:
    struct Loop;

    const LineLimits limits_;
    std::shared_ptr<Loop> loop_;  // the thread and what it serves; from the first opening on
};

}  // namespace platform
