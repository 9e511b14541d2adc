#include "support/loopback_server.h"
#include <atomic>
#include <thread>
#include "platform/machine.h"
#include "support/machine.h"
#ifdef _WIN32
#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>
#define close closesocket
using socklen = int;
using Handle = SOCKET;
#else
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>
using socklen = socklen_t;
using Handle = int;
#endif
struct LoopbackServer::State {
    std::function<LoopbackAnswer(const LoopbackRequest&)> handler;
    Handle listening{};
    std::atomic<bool> stop{false};
    int port = 0;
    std::thread thread;
    void Serve(Handle c) {
        std::string in;
        char b[65536];
        std::size_t end = 0, need = 0;
        for (;;) {
            const auto n = ::recv(c, b, sizeof b, 0);
            if (n <= 0)
                return;
            in.append(b, static_cast<std::size_t>(n));
            end = in.find("\r\n\r\n");
            if (end == std::string::npos)
                continue;
            std::string head = in.substr(0, end);
            for (auto& ch : head)
                ch = static_cast<char>(tolower(ch));
            auto at = head.find("content-length: ");
            need = at == std::string::npos ? 0 : std::stoul(head.substr(at + 16));
            if (in.size() >= end + 4 + need)
                break;
        }
        LoopbackRequest r;
        r.head = in.substr(0, end);
        r.method = in.substr(0, in.find(' '));
        r.path = in.substr(in.find(' ') + 1);
        r.path = r.path.substr(0, r.path.find(' '));
        if (r.path.starts_with("http://"))
            r.path = r.path.substr(r.path.find('/', 7));
        r.body = in.substr(end + 4, need);
        LoopbackAnswer a = handler(r);
        if (a.cut)
            return;
        std::string out = "HTTP/1.1 " + std::to_string(a.status) + " X\r\nConnection: close\r\n";
        if (a.status != 204)
            out += "Content-Length: " + std::to_string(a.body.size()) + "\r\n";
        out += "\r\n" + (a.status != 204 ? a.body : "");
        for (std::size_t s = 0; s < out.size();) {
            const auto n = ::send(c, out.data() + s, static_cast<int>(out.size() - s), 0);
            if (n <= 0)
                return;
            s += static_cast<std::size_t>(n);
        }
    }
};
LoopbackServer::LoopbackServer(std::function<LoopbackAnswer(const LoopbackRequest&)> handler) : state_(new State) {
#ifdef _WIN32
    WSADATA d;
    WSAStartup(MAKEWORD(2, 2), &d);
#endif
    state_->handler = handler;
    state_->listening = Handle(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen n = sizeof a;
    ::bind(state_->listening, reinterpret_cast<sockaddr*>(&a), n);
    ::listen(state_->listening, 10);
    ::getsockname(state_->listening, reinterpret_cast<sockaddr*>(&a), &n);
    state_->port = ntohs(a.sin_port);
    state_->thread = std::thread([s = state_.get()] {
        for (;;) {
            auto c = Handle(::accept(s->listening, nullptr, nullptr));
            if (s->stop) {
                ::close(c);
                return;
            }
            if (c == Handle(-1))
                continue;
            s->Serve(c);
            ::close(c);
        }
    });
}
LoopbackServer::~LoopbackServer() {
    state_->stop = true;
    auto c = Handle(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<std::uint16_t>(state_->port));
    ::connect(c, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::close(c);
    state_->thread.join();
    ::close(state_->listening);
}
void LoopbackServer::stand_for(const std::string& host) const {
    const std::string address = "127.0.0.1:" + std::to_string(state_->port);
#ifdef _WIN32
    ::SetEnvironmentVariableA("http_proxy", address.c_str());
    (void)host;
#else
    write_text(platform::machine_folder() + "/network.json", "{\"hosts\": {\"" + host + ":80\": \"" + address + "\"}}");
#endif
}
