#include "platform/linux/line_server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <system_error>
#include <tuple>

namespace platform {
namespace {

constexpr std::size_t kLongestLine = 1 << 16;
constexpr std::size_t kMostPeers = 256;
constexpr int kBacklog = 128;
constexpr int kCrowdedMilliseconds = 1000;  // until a descriptor may be had again
constexpr std::uint32_t kNotEnoughMemory = 8;
constexpr std::uint32_t kPathTooLong = 206;
constexpr char kTooLong[] = "{\"error\":\"a line has at most 65536 bytes\"}\n";
constexpr auto kFarewell = std::chrono::seconds(1);  // for those who do not read their last answer

void cut_off(std::string& in, std::string& out, bool& ended) {
    in.clear();
    out.clear();
    ended = true;
}

}  // namespace

LineServer::~LineServer() {
    stop();
}

std::uint32_t LineServer::open(const std::string& name) {
    path_ = machine_path(name);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) {
        return kPathTooLong;
    }
    path_.copy(address.sun_path, path_.size());
    make_folders(path_.substr(0, path_.find_last_of('/')));
    wake_ = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    listener_ = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ::unlink(path_.c_str());
    const bool open = wake_ && listener_ &&
                      ::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                      ::listen(listener_.get(), kBacklog) == 0;
    return open ? 0 : windows_error(errno);
}

std::uint32_t LineServer::start(Handler handler) try {
    handler_ = std::move(handler);
    thread_ = std::thread(&LineServer::run, this);
    return 0;
} catch (const std::system_error&) {
    return kNotEnoughMemory;
}

void LineServer::answer(Connection connection, std::string line) {
    const std::lock_guard guard(mutex_);
    answers_.emplace_back(connection, std::move(line));
    ::eventfd_write(wake_.get(), 1);
}

void LineServer::stop() {
    if (listener_) {
        ::unlink(path_.c_str());
    }
    if (thread_.joinable()) {
        {
            const std::lock_guard guard(mutex_);
            stopping_ = true;
            ::eventfd_write(wake_.get(), 1);
        }
        thread_.join();
    }
    const Descriptor closing = std::move(listener_);
}

void LineServer::run() try {
    while (wait()) {
        for (const auto& [connection, events] : ready_) {
            Peer& peer = peers_[connection];
            if ((events & POLLOUT) != 0) {
                send(peer);
            } else if (events != 0) {
                read(peer);
            }
        }
        for (auto& [connection, peer] : peers_) {
            advance(connection, peer);
        }
        std::erase_if(peers_, [](const auto& entry) {
            const Peer& peer = entry.second;
            return peer.ended && !peer.waits && peer.in.empty() && peer.out.empty();
        });
    }
    const auto end = std::chrono::steady_clock::now() + kFarewell;
    take_answers();
    for (auto& [connection, peer] : peers_) {
        advance(connection, peer);
        for (auto now = end - kFarewell; !peer.out.empty() && now < end; now = std::chrono::steady_clock::now()) {
            const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count();
            pollfd source = {peer.socket.get(), POLLOUT, 0};
            ::poll(&source, 1, static_cast<int>(rest));
            send(peer);
        }
    }
    peers_.clear();
} catch (const std::bad_alloc&) {
    peers_.clear();  // nobody is served any more, which every client sees
}

// False when the server is to stop.
bool LineServer::wait() {
    std::vector<pollfd> sources = {{wake_.get(), POLLIN, 0}, {crowded_ ? -1 : listener_.get(), POLLIN, 0}};
    ready_.clear();
    for (const auto& [connection, peer] : peers_) {
        // Nothing is asked about those who wait: a hung-up one would be ready all the time.
        const short events = !peer.out.empty() ? POLLOUT : peer.waits || peer.ended ? 0 : POLLIN;
        sources.push_back({events != 0 ? peer.socket.get() : -1, events, 0});
        ready_.emplace_back(connection, short{0});
    }
    ::poll(sources.data(), sources.size(), crowded_ ? kCrowdedMilliseconds : -1);
    for (std::size_t i = 0; i < ready_.size(); ++i) {
        ready_[i].second = sources[i + 2].revents;
    }
    crowded_ = false;
    if (sources[0].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
        take_answers();
    }
    if (sources[1].revents != 0) {
        take_peer();
    }
    const std::lock_guard guard(mutex_);
    return !stopping_;
}

void LineServer::take_answers() {
    std::vector<std::pair<Connection, std::string>> answers;
    {
        const std::lock_guard guard(mutex_);
        answers.swap(answers_);
    }
    for (auto& [connection, line] : answers) {
        const auto peer = peers_.find(connection);
        if (peer != peers_.end()) {
            peer->second.out = std::move(line) + "\n";
            peer->second.waits = false;
            send(peer->second);
        }
    }
}

void LineServer::take_peer() {
    Descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    const bool lacksDescriptors = !socket && (errno == EMFILE || errno == ENFILE);
    if (lacksDescriptors || peers_.size() >= kMostPeers) {
        cut_off_the_idlest();
    }
    crowded_ = lacksDescriptors && peers_.empty();
    if (socket) {
        peers_[++lastConnection_] = {std::move(socket), "", "", false, false, ++uses_};
    }
}

void LineServer::cut_off_the_idlest() {
    const auto idlest = std::min_element(peers_.begin(), peers_.end(), [](const auto& a, const auto& b) {
        return std::tuple(a.second.waits, a.second.lastUse) < std::tuple(b.second.waits, b.second.lastUse);
    });
    if (idlest != peers_.end()) {
        std::erase_if(ready_, [&](const auto& entry) { return entry.first == idlest->first; });
        peers_.erase(idlest);
    }
}

void LineServer::read(Peer& peer) {
    std::array<char, 4096> buffer;
    const ssize_t count = retry([&] { return ::recv(peer.socket.get(), buffer.data(), buffer.size(), 0); });
    if (count > 0) {
        peer.in.append(buffer.data(), static_cast<std::size_t>(count));
        peer.lastUse = ++uses_;
    } else if (count == 0) {
        peer.ended = true;
    } else if (errno != EAGAIN) {
        cut_off(peer.in, peer.out, peer.ended);
    }
}

void LineServer::send(Peer& peer) {
    while (!peer.out.empty()) {
        const ssize_t count =
            retry([&] { return ::send(peer.socket.get(), peer.out.data(), peer.out.size(), MSG_NOSIGNAL); });
        if (count < 0) {
            if (errno != EAGAIN) {
                cut_off(peer.in, peer.out, peer.ended);
            }
            return;
        }
        peer.out.erase(0, static_cast<std::size_t>(count));
    }
}

// Takes line after line until one is not answered at once, or its answer is not read at once.
void LineServer::advance(Connection connection, Peer& peer) {
    while (!peer.waits && peer.out.empty()) {
        std::size_t length = peer.in.find('\n');
        if (std::min(length, peer.in.size()) > kLongestLine) {
            cut_off(peer.in, peer.out, peer.ended);
            peer.out = kTooLong;
        } else if (length != std::string::npos || (peer.ended && !peer.in.empty())) {
            length = std::min(length, peer.in.size());  // the last line needs no end
            const std::string line = peer.in.substr(0, length);
            peer.in.erase(0, length + 1);
            auto answer = handler_(connection, line);
            peer.waits = !answer;
            peer.out = answer ? *std::move(answer) + "\n" : "";
        } else {
            return;
        }
        send(peer);
    }
}

}  // namespace platform
