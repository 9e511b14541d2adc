// plain-server SOCKET LOG: what rpc-bench compares the service with. For each call it writes what the service writes
// and does nothing else: a JSON call's two entries into a log that stays open, a getter's callback, and an answer that
// is always the same of its kind. It has no threads, no lock, no hardware, no registry and no JSON, so a service cannot
// be cheaper.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view kEntry =
    R"({"source":"Zorvalis","strings":["Zorvalis","[ BigDataServiceCallDispatcher] <--- "],)"
    R"("time":1795367000.123456,"type":4})"
    "\n";
constexpr std::string_view kAnswer =
    R"({"id":1,"jsonrpc":"2.0","result":{"output":"{\"function\":9,\"parameter\":\"\",\"status\":\"Success\"}"}})"
    "\n";
constexpr std::string_view kCallback =
    R"({"jsonrpc":"2.0","method":"CallbackText","params":{"cookie":7,"function":9,"result":"2.0.6.0"}})"
    "\n"
    R"({"id":1,"jsonrpc":"2.0","result":null})"
    "\n";
constexpr std::string_view kUnknown = R"({"error":{"code":-32601,"message":"Method not found"},"id":1,"jsonrpc":"2.0"})"
                                      "\n";

}  // namespace

int main(int argc, char** argv) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, argc > 1 ? argv[1] : "", sizeof address.sun_path - 1);
    const int log = open(argc > 2 ? argv[2] : "", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int set = epoll_create1(EPOLL_CLOEXEC);
    const auto watch = [&](int descriptor) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event);
    };
    if (log < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 4096) != 0) {
        std::perror("plain-server");
        return 1;
    }
    watch(listener);
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
            const std::string_view line(bytes, static_cast<std::size_t>(size));  // a client has one call at a time
            std::string_view answer = kAnswer;
            if (line.find("BigDataServiceCall") != line.npos) {
                for (int entries = 0; entries < 2; ++entries) {
                    if (write(log, kEntry.data(), kEntry.size()) < 0) {
                        std::perror("plain-server");
                        return 1;
                    }
                }
            } else if (line.find("\"Get") != line.npos) {
                answer = line.find("\"GetNothing") != line.npos ? kUnknown : kCallback;
            }
            send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
    }
}
