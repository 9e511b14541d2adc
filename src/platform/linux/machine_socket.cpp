#include "platform/stand_in/machine_socket.h"
#include "platform/linux/machine_path.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace platform {
namespace {

struct Address {
    explicit Address(const std::string& path) : fits(path.size() < sizeof name.sun_path) {
        name.sun_family = AF_UNIX;
        path.copy(name.sun_path, sizeof name.sun_path - 1);
        errno = fits ? errno : ENAMETOOLONG;
    }

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&name); }

    sockaddr_un name{};
    bool fits;
};

bool is_alive(const Address& address) {
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return socket && (::connect(socket.get(), address.get(), sizeof address.name) == 0 || errno == EAGAIN);
}

}  // namespace

Descriptor listen_at(const std::string& name, unsigned mode) {
    const std::string path = machine_path(name);
    const std::string folder = path.substr(0, path.find_last_of('/'));
    const Address address(path);
    if (!address.fits) {
        return Descriptor();
    }
    make_folders(folder);
    // One at a time: a socket that is bound and does not listen yet looks like one that was left behind.
    const Descriptor lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!lock || !socket || retry([&] { return ::flock(lock.get(), LOCK_EX); }) != 0) {
        return Descriptor();
    }
    if (is_alive(address)) {
        errno = EADDRINUSE;
        return Descriptor();
    }
    ::unlink(path.c_str());
    const bool listens = ::bind(socket.get(), address.get(), sizeof address.name) == 0 &&
                         (mode == 0 || ::chmod(path.c_str(), mode) == 0) && ::listen(socket.get(), SOMAXCONN) == 0;
    return listens ? std::move(socket) : Descriptor();
}

Descriptor connect_to(const std::string& name, int seconds) {
    const Address address(machine_path(name));
    if (!address.fits) {
        return Descriptor();
    }
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval limit = {seconds, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const bool connected =
        socket && retry([&] { return ::connect(socket.get(), address.get(), sizeof address.name); }) == 0;
    return connected ? std::move(socket) : Descriptor();
}

}  // namespace platform
