// Plain HTTP on loopback for one test: each request goes to a handler, on a thread of the server's own, one at a time.
// All servers of a test program share one port, since on Windows it is the program's proxy.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct LoopbackRequest {
    std::string path;
    std::string head;  // all lines before the empty one
    std::string body;
};

// The server's side of a connection.
class LoopbackConnection {
public:
    explicit LoopbackConnection(std::intptr_t socket) : socket_(socket) {}
    bool send(std::string_view bytes) const;  // false when the client is gone

private:
    std::intptr_t socket_;
};

struct LoopbackAnswer {
    int status = 200;
    std::string body;
    bool cut = false;                                                  // closes the connection without an answer
    std::function<void(const LoopbackConnection&)> by_hand = nullptr;  // in place of all that
    int lead_to = 0;                                                   // or everything goes to this port, as by a proxy
};

class LoopbackServer {
public:
    using Handler = std::function<LoopbackAnswer(const LoopbackRequest&)>;

    explicit LoopbackServer(Handler handler);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // Before the program's first exchange.
    static void begin();
    static std::string address();

    // Before and after a client that is a process of its own: the test and the handler see each other's work.
    static void settle();

    // Makes the test's machine find this server under a host name, on port 80; on Windows it is found under all.
    void stand_for(const std::string& host) const;
};
