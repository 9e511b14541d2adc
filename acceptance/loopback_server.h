// A server on loopback for one step: it answers requests by a function, one connection at a time, and tells what it
// heard. With a certificate it speaks TLS.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "connection.h"

namespace zorvalis::acceptance {

struct Request {
    std::string head;  // all lines before the empty one
    std::string body;

    std::string oneLine() const;  // for the report
    std::string firstLine() const { return head.substr(0, head.find('\r')); }
    // Whether a line begins so; with its line's end, whether it is that line.
    bool has(const std::string& begin) const { return (head + "\r\n").find("\r\n" + begin) != std::string::npos; }
};

class LoopbackServer {
public:
    // Writes the answer. The connection is closed after that.
    using Answer = std::function<void(Connection& client, const Request& request)>;

    // Listens on 127.0.0.1, and on ::1 where that is free, at this port; 0 takes one that Windows gives.
    LoopbackServer(std::uint16_t port, Answer answer, PCCERT_CONTEXT certificate = nullptr);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // Why it does not listen, a Windows error number; else 0.
    unsigned long error() const { return error_; }
    std::uint16_t port() const { return port_; }

    std::vector<Request> heard() const;
    std::size_t bytes() const { return bytes_; }  // that clients have sent, decrypted
    std::vector<long> handshakes() const;         // how each one ended

private:
    void Listen(int family);
    void Serve(SOCKET listening);
    void ServeOne(SOCKET socket);

    const Answer answer_;
    const PCCERT_CONTEXT certificate_;
    std::uint16_t port_;
    unsigned long error_ = 0;
    std::vector<SOCKET> listening_;
    std::vector<std::thread> threads_;
    std::atomic<bool> ends_{false};
    std::atomic<std::size_t> bytes_{0};
    mutable std::mutex mutex_;
    std::vector<Request> heard_;
    std::vector<long> handshakes_;
};

// An answer as a server of HTTP gives it, with its length.
std::string HttpAnswer(int status, const std::string& body, const std::string& moreLines = "");

// Carries bytes both ways between the client and a port of this machine until one of them ends.
void LeadTo(Connection& client, std::uint16_t port);

}  // namespace zorvalis::acceptance
