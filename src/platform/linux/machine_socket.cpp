#include "platform/linux/machine_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace platform {
namespace {

Descriptor make_socket() {
    return Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool is_alive(const sockaddr_un& address) {
    const Descriptor socket = make_socket();
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    return socket && (::connect(socket.get(), name, sizeof address) == 0 || errno == EAGAIN);
}

}  // namespace

std::string socket_path(const char* name) {
    return machine_path(std::string("run/") + name);
}

Descriptor listen_at(const char* name) {
    const std::string folder = machine_path("run");
    const std::string path = socket_path(name);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.copy(address.sun_path, sizeof address.sun_path - 1) < path.size()) {
        errno = ENAMETOOLONG;
        return Descriptor();
    }
    make_folders(folder);
    // One at a time: a socket that is bound and does not listen yet looks like one that was left behind.
    const Descriptor lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Descriptor socket = make_socket();
    if (!lock || !socket || retry([&] { return ::flock(lock.get(), LOCK_EX); }) != 0) {
        return Descriptor();
    }
    if (is_alive(address)) {
        errno = EADDRINUSE;
        return Descriptor();
    }
    ::unlink(path.c_str());
    const bool listens = ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                         ::listen(socket.get(), SOMAXCONN) == 0;
    return listens ? std::move(socket) : Descriptor();
}

}  // namespace platform
