// A socket in the machine's run folder to which other programs send lines, each of which is answered by one. A thread
// of its own waits for all of them at once, so one that hangs, floods or does not read holds up nobody else; where
// there are too many, whoever has been silent for longest is cut off.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/machine_file.h"

namespace platform {

class LineServer {
public:
    using Connection = std::uint64_t;  // from 1

    // Called on the server's thread. The result is the answer; without one it comes by `answer`, and no further line
    // of the connection is taken until then.
    using Handler = std::function<std::optional<std::string>(Connection connection, const std::string& line)>;

    LineServer() = default;
    ~LineServer();
    LineServer(const LineServer&) = delete;
    LineServer& operator=(const LineServer&) = delete;

    // The path in the machine's folder. Whatever a dead process left there is replaced, so the caller makes sure that
    // it is dead. 0 or a system error.
    std::uint32_t open(const std::string& name);
    std::uint32_t start(Handler handler);

    // From any thread; dropped when the connection is gone.
    void answer(Connection connection, std::string line);

    // Takes the socket away, sends what is answered already, and closes all connections.
    void stop();

private:
    struct Peer {
        Descriptor socket;
        std::string in, out;
        bool waits = false;  // for `answer`
        bool ended = false;  // nothing more is read
        std::uint64_t lastUse = 0;
    };

    void run();
    bool wait();
    void take_answers();
    void take_peer();
    void cut_off_the_idlest();
    void read(Peer& peer);
    void send(Peer& peer);
    void advance(Connection connection, Peer& peer);

    std::string path_;
    Descriptor listener_, wake_;
    Handler handler_;
    std::thread thread_;

    // The server thread's own.
    std::map<Connection, Peer> peers_;
    std::vector<std::pair<Connection, short>> ready_;  // with what poll said of them
    std::uint64_t lastConnection_ = 0, uses_ = 0;
    bool crowded_ = false;  // no descriptor for a further connection

    std::mutex mutex_;  // guards what follows
    std::vector<std::pair<Connection, std::string>> answers_;
    bool stopping_ = false;
};

}  // namespace platform
