#include "platform/stand_in/line_client.h"

#include <sys/socket.h>

#include <array>

#include "platform/stand_in/machine_socket.h"

namespace platform {

bool LineClient::open(const std::string& name, int seconds) {
    socket_ = connect_to(name, seconds);
    in_.clear();
    return static_cast<bool>(socket_);
}

int LineClient::process() const {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}

bool LineClient::send(const std::string& line) {
    const std::string text = line + "\n";
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t count =
            retry([&] { return ::send(socket_.get(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL); });
        if (count < 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool LineClient::receive(std::string& line) {
    std::array<char, 4096> buffer;
    for (;;) {
        const std::size_t end = in_.find('\n');
        if (end != std::string::npos) {
            line = in_.substr(0, end);
            in_.erase(0, end + 1);
            return true;
        }
        const ssize_t count = retry([&] { return ::recv(socket_.get(), buffer.data(), buffer.size(), 0); });
        if (count <= 0) {
            errno = count == 0 ? EPIPE : errno;
            return false;
        }
        in_.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace platform
