#include "platform/linux/line_server.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <system_error>
#include <tuple>
#include <utility>

#include "platform/linux/machine_path.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/machine_socket.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTakenAtOnce = 64;            // connections, and ready sources
constexpr int kCrowdedMilliseconds = 1000;  // until a descriptor may be had again
constexpr std::uint32_t kNotEnoughMemory = 8;
constexpr auto kFarewell = std::chrono::seconds(1);  // for those who do not read their last answer
constexpr std::uint32_t kMayRead = EPOLLIN, kMayWrite = EPOLLOUT;
constexpr std::uint64_t kWake = 0, kListener = UINT64_MAX;

int milliseconds_until(Clock::time_point time) {
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    return static_cast<int>(std::max<std::int64_t>(rest, 0));
}

bool is_file(const std::string& path, std::uint64_t device, std::uint64_t file) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && status.st_dev == device && status.st_ino == file;
}

}  // namespace

LineServer::~LineServer() {
    stop();
}

std::uint32_t LineServer::open(const std::string& name) {
    Descriptor listener = listen_at(name, limits_.mode);
    struct stat status {};
    if (!listener || ::stat(machine_path(name).c_str(), &status) != 0) {
        return windows_error(errno);
    }
    const std::lock_guard guard(mutex_);
    if (!wake_ || !poll_) {
        wake_ = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        poll_ = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
        std::uint32_t none = 0;
        watch(wake_.get(), none, kMayRead, kWake);
    }
    if (!wake_ || !poll_) {
        ::unlink(machine_path(name).c_str());
        return windows_error(errno);
    }
    nextListener_ = std::move(listener);
    path_ = machine_path(name);
    device_ = status.st_dev;
    file_ = status.st_ino;
    ::eventfd_write(wake_.get(), 1);
    return 0;
}

std::uint32_t LineServer::start(Handler handler, EndHandler ended) try {
    handler_ = std::move(handler);
    ended_ = std::move(ended);
    thread_ = std::thread(&LineServer::run, this);
    return 0;
} catch (const std::system_error&) {
    return kNotEnoughMemory;
}

bool LineServer::listens_at(const std::string& name) {
    const std::lock_guard guard(mutex_);
    return path_ == machine_path(name) && is_file(path_, device_, file_);
}

void LineServer::add(Order order) {
    const std::lock_guard guard(mutex_);
    if (over_) {
        return;
    }
    if (orders_.empty()) {
        ::eventfd_write(wake_.get(), 1);
    }
    orders_.push_back(std::move(order));
}

void LineServer::answer(Connection connection, std::string line, std::size_t size) {
    add({connection, std::move(line), true, size, {}});
}

void LineServer::send(Connection connection, std::string line) {
    add({connection, std::move(line), false, 0, {}});
}

void LineServer::post(std::function<void()> action) {
    add({0, "", false, 0, std::move(action)});
}

// With the mutex held. The file may be somebody else's by now.
void LineServer::close_socket() {
    if (!path_.empty() && is_file(path_, device_, file_)) {
        ::unlink(path_.c_str());
    }
    path_.clear();
    if (wake_) {
        ::eventfd_write(wake_.get(), 1);
    }
}

void LineServer::finish() {
    const std::lock_guard guard(mutex_);
    closed_ = true;
    close_socket();
}

void LineServer::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void LineServer::stop() {
    {
        const std::lock_guard guard(mutex_);
        close_socket();
        stopping_ = true;
    }
    join();
}

void LineServer::run() {
    for (bool ends = false; !ends;) {
        try {
            round();
        } catch (const std::bad_alloc&) {
            drop_all();
        }
        const std::lock_guard guard(mutex_);
        ends = stopping_ || (finishing_ && peers_.empty());
        over_ = ends && !stopping_;
    }
    say_farewell();
    drop_all();
    const Descriptor closing = std::move(listener_);
    const std::lock_guard guard(mutex_);
    over_ = true;
    orders_.clear();
}

void LineServer::round() {
    std::array<epoll_event, kTakenAtOnce> ready;
    const int count = ::epoll_wait(poll_.get(), ready.data(), kTakenAtOnce, patience());
    take_orders();
    if (crowded_) {
        crowded_ = false;
        watch(listener_.get(), listenerInterest_, listener_ ? kMayRead : 0, kListener);
    }
    bool asked = false;
    for (int i = 0; i < count; ++i) {
        const std::uint64_t number = ready[i].data.u64;
        const auto entry = peers_.find(number);
        asked = asked || number == kListener;
        if (entry == peers_.end()) {
            continue;
        }
        LinePeer& peer = entry->second;
        if (peer.is_unread()) {
            peer.send();
        } else if (peer.may_read()) {
            hear(peer);
        }
        advance(number, peer);
        settle(entry);
    }
    if (asked && listener_) {
        take_peers();
    }
    cut_off_the_unread();
}

// The milliseconds until something is to be done that nobody wakes for.
int LineServer::patience() const {
    int result = crowded_ ? kCrowdedMilliseconds : -1;
    for (const Connection connection : unread_) {
        const int rest = milliseconds_until(peers_.at(connection).deadline());
        result = result < 0 ? rest : std::min(result, rest);
    }
    return result;
}

void LineServer::take_orders() {
    eventfd_t ignored = 0;
    ::eventfd_read(wake_.get(), &ignored);
    std::vector<Order> orders;
    bool finishes = false;
    {
        const std::lock_guard guard(mutex_);
        orders.swap(orders_);
        finishes = closed_ && !finishing_;
    }
    take_listener();
    std::set<Connection> touched;
    for (Order& order : orders) {
        const auto entry = peers_.find(order.connection);
        if (order.action) {
            order.action();
        } else if (entry != peers_.end()) {
            if (order.answers) {
                entry->second.end_wait(order.size);
            }
            entry->second.push(order.line);
            touched.insert(order.connection);
        }
    }
    if (finishes) {
        finishing_ = true;
        watch(listener_.get(), listenerInterest_, 0, kListener);
        const Descriptor closing = std::move(listener_);
        for (const auto& [connection, peer] : peers_) {
            touched.insert(connection);
        }
    }
    for (const Connection connection : touched) {
        const auto entry = peers_.find(connection);
        advance(connection, entry->second);
        settle(entry);
    }
}

// Of another machine, or in the place of a socket that was taken away.
void LineServer::take_listener() {
    Descriptor next;
    {
        const std::lock_guard guard(mutex_);
        next = std::exchange(nextListener_, Descriptor());
    }
    if (next) {
        drop_all();
        std::swap(listener_, next);
        listenerInterest_ = 0;
        watch(listener_.get(), listenerInterest_, kMayRead, kListener);
    }
}

void LineServer::take_peers() {
    for (int i = 0; i < kTakenAtOnce; ++i) {
        Descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        const bool lacksDescriptors = !socket && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
        const bool tooMany = lacksDescriptors || (socket && peers_.size() >= limits_.connections);
        const bool madeRoom = tooMany && cut_off_the_idlest();
        if (!socket) {
            crowded_ = lacksDescriptors && !madeRoom;
            if (crowded_) {  // or the next round would come at once, for ever
                watch(listener_.get(), listenerInterest_, 0, kListener);
            }
            return;
        }
        const auto entry = peers_.try_emplace(++lastConnection_, std::move(socket), limits_).first;
        entry->second.lastUse = ++uses_;
        settle(entry);
    }
}

// What it has just said is still heard. False when there is none.
bool LineServer::cut_off_the_idlest() {
    const auto idlest = std::min_element(peers_.begin(), peers_.end(), [](const auto& a, const auto& b) {
        return std::tuple(a.second.is_waiting(), a.second.lastUse) <
               std::tuple(b.second.is_waiting(), b.second.lastUse);
    });
    if (idlest == peers_.end()) {
        return false;
    }
    if (idlest->second.may_read() && hear(idlest->second)) {
        advance(idlest->first, idlest->second);
    }
    end(idlest);
    return true;
}

void LineServer::cut_off_the_unread() {
    for (auto next = unread_.begin(); next != unread_.end();) {
        const auto entry = peers_.find(*next++);  // which is taken out when it ends
        if (entry->second.is_stuck()) {
            end(entry);
        }
    }
}

void LineServer::drop_all() {
    while (!peers_.empty()) {
        end(peers_.begin());
    }
}

void LineServer::end(Peers::iterator entry) {
    const Connection connection = entry->first;
    unread_.erase(connection);
    peers_.erase(entry);
    if (ended_) {
        ended_(connection);
    }
}

// What the connection waits for next, or its end.
void LineServer::settle(Peers::iterator entry) {
    auto& [connection, peer] = *entry;
    if (peer.is_over() || (finishing_ && peer.is_silent())) {
        end(entry);
        return;
    }
    // Nothing is asked about those who wait: a hung-up one would be ready all the time.
    const std::uint32_t wanted = peer.is_unread() ? kMayWrite : peer.may_read() && !finishing_ ? kMayRead : 0;
    watch(peer.socket(), peer.interest, wanted, connection);
    if (peer.is_unread()) {
        unread_.insert(connection);
    } else {
        unread_.erase(connection);
    }
}

void LineServer::watch(int descriptor, std::uint32_t& interest, std::uint32_t wanted, std::uint64_t number) {
    if (interest != wanted) {
        epoll_event event{};
        event.events = wanted;
        event.data.u64 = number;
        const int operation = interest == 0 ? EPOLL_CTL_ADD : wanted == 0 ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
        ::epoll_ctl(poll_.get(), operation, descriptor, &event);
        interest = wanted;
    }
}

bool LineServer::hear(LinePeer& peer) {
    const bool heard = peer.read();
    peer.lastUse = heard ? ++uses_ : peer.lastUse;
    return heard;
}

// Takes line after line, as far as may be.
void LineServer::advance(Connection connection, LinePeer& peer) {
    std::string line;
    while (!finishing_ && peer.take(line)) {
        const auto answer = handler_(connection, line);
        if (!answer) {
            peer.wait(line.size());
        }
        peer.push(answer.value_or(""));
    }
}

void LineServer::say_farewell() try {
    const auto end = Clock::now() + kFarewell;
    take_orders();
    for (auto& [connection, peer] : peers_) {
        while (peer.is_unread() && !peer.is_over() && Clock::now() < end) {
            pollfd source = {peer.socket(), POLLOUT, 0};
            ::poll(&source, 1, milliseconds_until(end));
            peer.send();
        }
    }
} catch (const std::bad_alloc&) {  // then without one
}

}  // namespace platform
