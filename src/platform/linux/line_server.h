// A socket in the machine's run folder to which other programs send lines, which are answered by lines. A thread of its
// own waits for all of them at once, so one that hangs, floods or does not read holds up nobody else; where there are
// too many, whoever has been silent for longest is cut off.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/line_peer.h"
#include "platform/stand_in/descriptor.h"

namespace platform {

class LineServer {
public:
    using Connection = std::uint64_t;  // from 1

    // Both are called on the server's thread. The handler's result is the answer, an empty one is not sent; without one
    // it comes by `answer`.
    using Handler = std::function<std::optional<std::string>(Connection connection, const std::string& line)>;
    using EndHandler = std::function<void(Connection connection)>;

    LineServer() = default;
    explicit LineServer(LineLimits limits) : limits_(std::move(limits)) {}
    ~LineServer();
    LineServer(const LineServer&) = delete;
    LineServer& operator=(const LineServer&) = delete;

    // The path in the machine's folder. Whatever a dead process left there is replaced. Once more, it goes on listening
    // there, and its connections end. 0 or a system error.
    std::uint32_t open(const std::string& name);
    std::uint32_t start(Handler handler, EndHandler ended = {});
    bool listens_at(const std::string& name);  // and the socket's file is still its own

    // From any thread, also when the connection is gone. `size` is that of the line that is answered; `send` is for
    // lines beside the answers.
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
    using Peers = std::map<Connection, LinePeer>;

    struct Order {
        Connection connection = 0;
        std::string line;
        bool answers = false;
        std::size_t size = 0;
        std::function<void()> action;
    };

    void run();
    void round();
    int patience() const;
    void take_orders();
    void take_listener();
    void take_peers();
    bool cut_off_the_idlest();
    void cut_off_the_unread();
    void drop_all();
    void end(Peers::iterator entry);
    void settle(Peers::iterator entry);
    void watch(int descriptor, std::uint32_t& interest, std::uint32_t wanted, std::uint64_t number);
    bool hear(LinePeer& peer);
    void advance(Connection connection, LinePeer& peer);
    void say_farewell();
    void add(Order order);
    void close_socket();

    LineLimits limits_;
    Handler handler_;
    EndHandler ended_;
    std::thread thread_;
    Descriptor wake_, poll_;

    // The server thread's own.
    Descriptor listener_;
    std::uint32_t listenerInterest_ = 0;
    Peers peers_;
    std::set<Connection> unread_;  // with an answer that is not read yet
    std::uint64_t lastConnection_ = 0, uses_ = 0;
    bool crowded_ = false;  // no descriptor for a further connection
    bool finishing_ = false;

    std::mutex mutex_;  // guards what follows
    std::vector<Order> orders_;
    Descriptor nextListener_;
    std::string path_;
    std::uint64_t device_ = 0, file_ = 0;  // of the socket's file
    bool closed_ = false, stopping_ = false, over_ = false;
};

}  // namespace platform
