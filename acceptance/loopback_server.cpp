#include "loopback_server.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <cctype>

namespace zorvalis::acceptance {
namespace {

constexpr std::size_t kMostRequest = 64 << 20;
constexpr long kStatusPlain = 0;

void StartSockets() {
    static const int started = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data);
    }();
    static_cast<void>(started);
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::size_t BodyLength(const std::string& head) {
    const std::string lower = Lower(head);
    const std::size_t place = lower.find("\r\ncontent-length: ");
    // Wine gives CONNECT, and a GET that a POST was led to, the length of a body that never comes.
    return place == std::string::npos || !lower.starts_with("post ") ? 0 : std::stoul(lower.substr(place + 18));
}

SOCKET ConnectedTo(std::uint16_t port) {
    const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        return socket;
    }
    ::closesocket(socket);
    return INVALID_SOCKET;
}

}  // namespace

std::string Request::oneLine() const {
    std::string text = head;
    for (std::size_t end = text.find("\r\n"); end != std::string::npos; end = text.find("\r\n")) {
        text.replace(end, 2, " | ");
    }
    return text + ", and " + std::to_string(body.size()) + " bytes";
}

LoopbackServer::LoopbackServer(std::uint16_t port, Answer answer, PCCERT_CONTEXT certificate)
    : answer_(std::move(answer)), certificate_(certificate), port_(port) {
    StartSockets();
    Listen(AF_INET);
    if (error_ == 0) {
        Listen(AF_INET6);
        error_ = 0;
    }
    for (const SOCKET socket : listening_) {
        threads_.emplace_back([this, socket] { Serve(socket); });
    }
}

LoopbackServer::~LoopbackServer() {
    ends_ = true;
    for (const SOCKET socket : listening_) {
        // Wakes the thread that waits there: on Wine closing the socket does not.
        sockaddr_storage address = {};
        int size = sizeof address;
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
        const SOCKET last = ::socket(address.ss_family, SOCK_STREAM, 0);
        ::connect(last, reinterpret_cast<sockaddr*>(&address), size);
        ::closesocket(last);
    }
    for (std::thread& thread : threads_) {
        thread.join();
    }
    for (const SOCKET socket : listening_) {
        ::closesocket(socket);
    }
}

std::vector<Request> LoopbackServer::heard() const {
    const std::lock_guard guard(mutex_);
    return heard_;
}

std::vector<long> LoopbackServer::handshakes() const {
    const std::lock_guard guard(mutex_);
    return handshakes_;
}

void LoopbackServer::Listen(int family) {
    const SOCKET socket = ::socket(family, SOCK_STREAM, 0);
    sockaddr_in6 six = {};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port_);
    six.sin6_addr = in6addr_loopback;
    sockaddr_in four = {};
    four.sin_family = AF_INET;
    four.sin_port = htons(port_);
    four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const address = family == AF_INET ? reinterpret_cast<sockaddr*>(&four) : reinterpret_cast<sockaddr*>(&six);
    int size = family == AF_INET ? sizeof four : sizeof six;
    const BOOL alone = TRUE;  // nobody else may listen here meanwhile
    ::setsockopt(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&alone), sizeof alone);
    if (socket == INVALID_SOCKET || ::bind(socket, address, size) != 0 || ::listen(socket, 16) != 0) {
        error_ = static_cast<unsigned long>(::WSAGetLastError());
        ::closesocket(socket);
        return;
    }
    ::getsockname(socket, address, &size);
    port_ = ntohs(family == AF_INET ? four.sin_port : six.sin6_port);
    listening_.push_back(socket);
}

void LoopbackServer::Serve(SOCKET listening) {
    while (!ends_) {
        const SOCKET socket = ::accept(listening, nullptr, nullptr);
        if (socket == INVALID_SOCKET || ends_) {
            ::closesocket(socket);
            return;
        }
        ServeOne(socket);
    }
}

void LoopbackServer::ServeOne(SOCKET socket) {
    long status = kStatusPlain;
    const std::unique_ptr<Connection> client =
        certificate_ == nullptr ? PlainConnection(socket) : TlsConnection(socket, certificate_, status);
    {
        const std::lock_guard guard(mutex_);
        handshakes_.push_back(status);
    }
    if (client == nullptr) {
        return;
    }
    std::string text;
    std::size_t end = std::string::npos;
    for (std::size_t wanted = 1; text.size() < wanted && wanted < kMostRequest;) {
        const std::string more = client->Read();
        bytes_ += more.size();
        text += more;
        end = text.find("\r\n\r\n");
        if (more.empty()) {
            break;
        }
        wanted = end == std::string::npos ? text.size() + 1 : end + 4 + BodyLength(text.substr(0, end));
    }
    if (end == std::string::npos) {
        return;
    }
    const Request request = {text.substr(0, end), text.substr(end + 4)};
    {
        const std::lock_guard guard(mutex_);
        heard_.push_back(request);
    }
    answer_(*client, request);
}

std::string HttpAnswer(int status, const std::string& body, const std::string& moreLines) {
    return "HTTP/1.1 " + std::to_string(status) + " Said\r\nConnection: close\r\n" + moreLines +
           (status == 204 ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" + body;
}

void LeadTo(Connection& client, std::uint16_t port) {
    const SOCKET socket = ConnectedTo(port);
    if (socket == INVALID_SOCKET) {
        return;
    }
    const std::unique_ptr<Connection> server = PlainConnection(socket);
    std::thread answers([&] {
        for (std::string bytes = server->Read(); !bytes.empty() && client.Write(bytes); bytes = server->Read()) {
        }
        client.End();
    });
    for (std::string bytes = client.Read(); !bytes.empty() && server->Write(bytes); bytes = client.Read()) {
    }
    server->End();
    answers.join();
}

}  // namespace zorvalis::acceptance
