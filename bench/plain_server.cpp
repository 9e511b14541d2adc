// plain-server SOCKET: what rpc-bench compares the service with. It answers each line with the same constant line. It
// does not look at the line and has no threads, no lock, no hardware and no log, so a service cannot be cheaper.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    constexpr char kAnswer[] =
        R"({"id":1,"jsonrpc":"2.0","result":{"output":"{\"function\":9,\"parameter\":\"\",\"status\":\"Success\"}"}})"
        "\n";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, argc > 1 ? argv[1] : "", sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int set = epoll_create1(EPOLL_CLOEXEC);
    const auto watch = [&](int descriptor) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event);
    };
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener, 4096) != 0) {
        std::perror("plain-server");
        return 1;
    }
    watch(listener);
    std::string answers;
    char bytes[16384];
    epoll_event ready[256];
    for (;;) {
        const int count = epoll_wait(set, ready, 256, -1);
        for (int i = 0; i < count; ++i) {
            const int peer = ready[i].data.fd;
            if (peer == listener) {
                watch(accept(listener, nullptr, nullptr));
                continue;
            }
            const ssize_t size = recv(peer, bytes, sizeof bytes, 0);
            if (size <= 0) {
                close(peer);
                continue;
            }
            answers.clear();
            for (auto lines = std::count(bytes, bytes + size, '\n'); lines > 0; --lines) {
                answers += kAnswer;
            }
            send(peer, answers.data(), answers.size(), MSG_NOSIGNAL);
        }
    }
}
