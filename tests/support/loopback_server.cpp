#include "support/loopback_server.h"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/machine.h"
#include "support/machine.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>

#include <winhttp.h>
#else
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {

#ifdef _WIN32
using Socket = SOCKET;
constexpr int kQuietly = 0;
void Close(Socket connection) {
    ::closesocket(connection);
}
#else
using Socket = int;
constexpr int kQuietly = MSG_NOSIGNAL;  // a client may be killed
void Close(Socket connection) {
    ::close(connection);
}
#endif

// Reads one whole request; false when the client goes away before its end.
bool ReadRequest(Socket connection, LoopbackRequest& request) {
    std::string text;
    char piece[16384];
    for (;;) {
        const auto count = ::recv(connection, piece, sizeof(piece), 0);
        if (count <= 0) {
            return false;
        }
        text.append(piece, static_cast<std::size_t>(count));
        const std::size_t end = text.find("\r\n\r\n");
        if (end == std::string::npos) {
            continue;
        }
        std::string head = text.substr(0, end);
        std::transform(head.begin(), head.end(), head.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        // Wine gives CONNECT the headers of the request that is to follow.
        const std::size_t length = head.starts_with("connect ") ? head.npos : head.find("content-length: ");
        const std::size_t size = length == std::string::npos ? 0 : std::stoul(head.substr(length + 16));
        if (text.size() < end + 4 + size) {
            continue;
        }
        request.head = text.substr(0, end);
        request.body = text.substr(end + 4, size);
        break;
    }
    const std::size_t blank = request.head.find(' ');
    request.path = request.head.substr(blank + 1, request.head.find(' ', blank + 1) - blank - 1);
    if (request.path.starts_with("http://")) {  // as a proxy is asked
        request.path.erase(0, request.path.find('/', 7));
    }
    return true;
}

void Write(const LoopbackConnection& connection, const LoopbackAnswer& answer) {
    if (answer.by_hand) {
        answer.by_hand(connection);
        return;
    }
    const std::string body = answer.status == 204 ? "" : answer.body;
    const std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " Said\r\nConnection: close\r\n" +
                             (answer.status == 204 ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") +
                             "\r\n" + body;
    connection.send(text);
}

void Pump(Socket from, Socket to) {
    char piece[16384];
    auto count = ::recv(from, piece, sizeof(piece), 0);
    while (count > 0 &&
           LoopbackConnection(static_cast<std::intptr_t>(to)).send({piece, static_cast<std::size_t>(count)})) {
        count = ::recv(from, piece, sizeof(piece), 0);
    }
    ::shutdown(to, 2);  // both ways, by its one number on both sides
}

void Lead(Socket client, int port) {
    const Socket server = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(server, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
        LoopbackConnection(static_cast<std::intptr_t>(client)).send("HTTP/1.1 200 Connected\r\n\r\n");
        std::thread answers(Pump, server, client);
        Pump(client, server);
        answers.join();
    }
    Close(server);
}

// The one listening socket, from its first use to the end of the program.
class Listener {
public:
    static Listener& Get() {
        static auto* const listener = new Listener;
        return *listener;
    }

    void Set(LoopbackServer::Handler handler) {
        const std::lock_guard guard(mutex_);
        handler_ = std::move(handler);
    }

    void Settle() { const std::lock_guard guard(mutex_); }

    std::string Address() const { return "127.0.0.1:" + std::to_string(port_); }

    // The proxy is what the C runtime below WinHTTP remembers: from its first look, until the load of some library
    // makes it look again. What the program starts looks up its own.
    void LeadAllHostsHere() const {
#ifdef _WIN32
        ::WinHttpCloseHandle(::WinHttpOpen(L"", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0));
        void* const put = reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ucrtbase.dll"), "_putenv"));
        reinterpret_cast<int (*)(const char*)>(put)(("http_proxy=" + Address()).c_str());
        ::SetEnvironmentVariableA("http_proxy", nullptr);
#endif
    }

private:
    Listener() {
#ifdef _WIN32
        WSADATA data;
        ::WSAStartup(MAKEWORD(2, 2), &data);
#endif
        listening_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        ::bind(listening_, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(listening_, 16);
        ::getsockname(listening_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        std::thread([this] {
            for (;;) {
                Serve();
            }
        }).detach();
    }

    void Serve() {
        const Socket connection = ::accept(listening_, nullptr, nullptr);
        LoopbackRequest request;
        if (ReadRequest(connection, request)) {
            const std::lock_guard guard(mutex_);
            const LoopbackAnswer answer = handler_ ? handler_(request) : LoopbackAnswer{503, "", false};
            if (answer.lead_to != 0) {
                Lead(connection, answer.lead_to);
            } else if (answer.cut) {
                // Sends nothing. Thread sanitizer takes it for what the close is: all before it is seen by the client.
                ::send(connection, "", 0, kQuietly);
            } else {
                Write(LoopbackConnection(static_cast<std::intptr_t>(connection)), answer);
            }
        }
        Close(connection);
    }

    Socket listening_;
    int port_ = 0;
    std::mutex mutex_;
    LoopbackServer::Handler handler_;
};

}  // namespace

bool LoopbackConnection::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const auto count = ::send(static_cast<Socket>(socket_), bytes.data(), static_cast<int>(bytes.size()), kQuietly);
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

LoopbackServer::LoopbackServer(Handler handler) {
    Listener::Get().LeadAllHostsHere();
    Listener::Get().Set(std::move(handler));
}

LoopbackServer::~LoopbackServer() {
    Listener::Get().Set(nullptr);
}

void LoopbackServer::begin() {
    Listener::Get().LeadAllHostsHere();
}

void LoopbackServer::settle() {
    Listener::Get().Settle();
}

std::string LoopbackServer::address() {
    return Listener::Get().Address();
}

void LoopbackServer::stand_for(const std::string& host) const {
    if (!platform::machine_folder().empty()) {
        write_text(platform::machine_folder() + "/network.json",
                   R"({"hosts": {")" + host + ":80\": \"" + Listener::Get().Address() + "\"}}");
    }
}
