#include "platform/linux/line_server.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/read_until.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <map>
#include <mutex>
#include <system_error>
#include <tuple>
#include <utility>

#include "platform/linux/loop_thread.h"
#include "platform/linux/machine_path.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/machine_socket.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;
using Protocol = asio::local::stream_protocol;
using Failure = asio::error_code;

constexpr auto kCrowded = std::chrono::seconds(1);   // until a descriptor may be had again
constexpr auto kFarewell = std::chrono::seconds(1);  // for those who do not read their last answer
constexpr std::uint32_t kNotEnoughMemory = 8;
constexpr std::size_t kAtOnce = 1 << 16;  // bytes that are read or written

// One connection. What works on it holds it, also behind its end.
struct Peer {
    Peer(asio::io_context& context, LineServer::Connection connection)
        : number(connection), socket(context), patience(context) {}

    bool is_unread() const { return !going.empty() || !out.empty(); }
    bool is_silent() const { return waiting == 0 && !is_unread(); }
    std::size_t unsent() const { return going.size() - sent + out.size(); }
    // A long half line counts twice, since the next read may double it.
    std::size_t bytes() const { return in.size() * (in.size() < kAtOnce ? 1 : 2) + unsent() + waiting_bytes; }

    const LineServer::Connection number;
    Protocol::socket socket;  // closed when the connection has ended
    asio::steady_timer patience;
    std::string in, going, out;  // `going` is being written, `out` comes behind it
    std::size_t sent = 0;        // of `going`
    std::size_t waiting = 0, waiting_bytes = 0;
    std::size_t counted = 0;     // of `bytes`, in the server's sum
    std::uint64_t last_use = 0;  // when a line came last
    bool reads = false, is_timed = false;
    bool ended = false;  // nothing more is read
    Clock::time_point progress{};
    int held = 0;  // by the kernel, of what was sent
};

using PeerHandle = std::shared_ptr<Peer>;

bool is_file(const std::string& path, const struct stat& file) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino;
}

}  // namespace

// All of it, but what the mutex guards, is the server thread's own.
struct LineServer::Loop final : LoopThread {
    explicit Loop(const LineLimits& limits_) : limits(limits_) {}

    void serve() override {
        while (!context.stopped()) {
            try {
                if (const PeerHandle peer = std::exchange(called, nullptr)) {  // whose handler keeps another thread
                    settle(peer);
                }
                await_peers();
                context.run();
            } catch (const std::exception&) {  // no memory
                drop_all();
            }
        }
        try {
            const auto end = Clock::now() + kFarewell;
            context.restart();
            guard.reset();
            stop_listening();
            while (context.poll_one() != 0 && Clock::now() < end) {  // what has come, and is answered already
            }
            finishing = stopping = true;
            settle_all();
            context.run_until(end);
        } catch (const std::exception&) {  // then without a farewell
        }
        drop_all();
    }

    // Of another machine, or in the place of a socket that was taken away.
    void listen(Descriptor next) {
        drop_all();
        stop_listening();
        listener.assign(Protocol(), next.get());
        next.release();
        await_peers();
    }

    void stop_listening() {
        Failure ignored;
        listener.close(ignored);
        crowded.cancel();
        awaits_peers = false;
    }

    void finish() {
        finishing = true;
        stop_listening();
        settle_all();
    }

    void await_peers() {
        if (!listener.is_open() || awaits_peers) {
            return;
        }
        // Behind what the others have said by now, of whom one may be cut off.
        listener.async_wait(Protocol::acceptor::wait_read, [this](const Failure& failure) {
            if (!failure) {
                awaits_peers = false;
                asio::post(context, [this] { take_peer(); });
            }
        });
        awaits_peers = true;
    }

    // The kernel's own call, since asio's leaves the descriptor to the processes that this one starts.
    void take_peer() {
        if (!listener.is_open()) {
            return;
        }
        Descriptor socket(::accept4(listener.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        const bool lacks_descriptors = !socket && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
        const bool too_many = lacks_descriptors || (socket && peers.size() >= limits.connections);
        const bool made_room = too_many && cut_off_the_idlest();
        if (lacks_descriptors && !made_room) {  // or the listener would be ready at once, for ever
            crowded.expires_after(kCrowded);
            crowded.async_wait([this](const Failure& failure) {
                if (!failure) {
                    await_peers();
                }
            });
            return;
        }
        await_peers();
        if (socket) {
            const auto peer = std::make_shared<Peer>(context, ++last_connection);
            if (Failure failure; peer->socket.assign(Protocol(), socket.get(), failure)) {
                return;
            }
            socket.release();
            peer->last_use = ++uses;
            peers.emplace(peer->number, peer);
            settle(peer);
        }
    }

    void cut_off_the_largest() {
        const auto largest = std::max_element(peers.begin(), peers.end(), [](const auto& a, const auto& b) {
            return a.second->counted < b.second->counted;
        });
        end(PeerHandle(largest->second));
    }

    bool cut_off_the_idlest() {
        const auto idlest = std::min_element(peers.begin(), peers.end(), [](const auto& a, const auto& b) {
            return std::tuple(a.second->waiting != 0, a.second->last_use) <
                   std::tuple(b.second->waiting != 0, b.second->last_use);
        });
        const bool some = idlest != peers.end();
        if (some) {
            end(PeerHandle(idlest->second));
        }
        return some;
    }

    void drop_all() {
        while (!peers.empty()) {
            end(PeerHandle(peers.begin()->second));
        }
    }

    void end(const PeerHandle& peer) {
        Failure ignored;
        peer->socket.close(ignored);
        peer->patience.cancel();
        bytes -= std::exchange(peer->counted, 0);
        peers.erase(peer->number);
        if (ended) {
            ended(peer->number);
        }
        if (finishing && peers.empty()) {
            context.stop();
        }
    }

    void settle_all() {
        for (auto next = peers.begin(); next != peers.end();) {
            settle(PeerHandle((next++)->second));
        }
        if (finishing && peers.empty()) {
            context.stop();
        }
    }

    // What the connection waits for next, or its end. While it waits for answers or does not read them it may have
    // been hung up: nothing is asked about it.
    void settle(const PeerHandle& peer) {
        if (!peer->socket.is_open()) {
            return;
        }
        bytes -= std::exchange(peer->counted, peer->bytes());
        bytes += peer->counted;
        while (bytes > limits.all_bytes) {
            cut_off_the_largest();
        }
        if (!peer->socket.is_open()) {
            return;
        }
        if ((peer->is_silent() && (peer->ended || finishing)) || (stopping && !peer->is_unread()) ||
            peer->unsent() > limits.unread_bytes) {
            return end(peer);
        }
        if (peer->reads || peer->ended || finishing || peer->is_unread() || peer->waiting >= limits.waiting ||
            peer->waiting_bytes >= limits.waiting_bytes) {
            return;
        }
        // A long line is read in parts that grow, so that what there is of it is counted.
        const std::size_t most = std::min(limits.line + 1, std::max(kAtOnce, 2 * peer->in.size()));
        asio::async_read_until(peer->socket, asio::dynamic_buffer(peer->in, most), '\n',
                               [this, peer](const Failure& failure, std::size_t size) {
                                   peer->reads = false;
                                   take(peer, failure, size);
                                   settle(peer);
                                   leave_locks();
                               });
        peer->reads = true;
    }

    // A line over the limit is the last.
    void take(const PeerHandle& peer, const Failure& failure, std::size_t size) {
        if (finishing || !peer->socket.is_open()) {
            return;
        }
        const bool is_full = failure == asio::error::not_found, is_over = failure == asio::error::eof;
        const bool is_long = is_full && peer->in.size() > limits.line;
        if (failure && !is_full && !is_over) {
            return end(peer);
        }
        if ((is_full && !is_long) || (!failure && peer->is_unread())) {  // a line that is not taken yet stays in `in`
            return;
        }
        peer->ended = is_long || is_over;
        const std::string line = peer->in.substr(0, is_over ? std::string::npos : size - 1);
        peer->in.erase(0, peer->ended ? std::string::npos : size);
        if (peer->in.empty()) {
            std::string().swap(peer->in);
        }
        if (is_long) {
            push(peer, limits.too_long);
        } else if (!is_over || !line.empty()) {  // the last line needs no end
            peer->last_use = ++uses;
            ++peer->waiting;
            peer->waiting_bytes += line.size();
            if (const auto answer = ask(peer, line)) {
                --peer->waiting;
                peer->waiting_bytes -= line.size();
                push(peer, *answer);
            }
        }
    }

    std::optional<std::string> ask(const PeerHandle& peer, const std::string& line) {
        std::optional<std::string> answer;
        called = peer;
        try {
            answer = handler(peer->number, line);
        } catch (const std::bad_alloc&) {  // no answer
        }
        if (!end_turn()) {
            try {
                if (answer) {
                    post_answer(peer->number, std::move(*answer), line.size());
                }
            } catch (const std::bad_alloc&) {  // the client waits in vain
            }
            throw Replaced();
        }
        called = nullptr;
        return answer;
    }

    void post_answer(Connection connection, std::string line, std::optional<std::size_t> answered) {
        asio::post(context,
                   [this, connection, line = std::move(line), answered] { answer(connection, line, answered); });
    }

    // Behind what is to go already; an empty line is none.
    void push(const PeerHandle& peer, const std::string& line) {
        if (!line.empty()) {
            peer->out.append(line).append("\n");
            if (peer->going.empty()) {
                write(peer);
            }
        }
    }

    void write(const PeerHandle& peer) {
        peer->going.swap(peer->out);
        const auto note = [peer](const Failure& failure, std::size_t sent) {
            peer->sent = sent;
            peer->progress = Clock::now();
            const bool goes_on = !failure && sent < peer->going.size() && measure(*peer);
            return goes_on ? kAtOnce : 0;
        };
        asio::async_write(peer->socket, asio::buffer(peer->going), note,
                          [this, peer](const Failure& failure, std::size_t sent) {
                              const bool is_whole = !failure && sent == peer->going.size();
                              std::string().swap(peer->going);
                              peer->sent = 0;
                              if (peer->socket.is_open() && !is_whole) {
                                  return end(peer);
                              }
                              if (peer->socket.is_open() && !peer->out.empty()) {
                                  write(peer);
                              }
                              settle(peer);
                          });
        // What the kernel took at once needs no timer: asio, once it has had one, wakes every five minutes for ever.
        asio::post(context, [this, peer] {
            if (peer->is_unread()) {
                watch(peer);
            }
        });
    }

    // epoll calls a Unix socket writable only when most of its buffer is free, so ask the kernel how much is unread.
    static bool measure(Peer& peer) { return ::ioctl(peer.socket.native_handle(), SIOCOUTQ, &peer.held) == 0; }

    // Ends the connection when nothing is read for the time.
    void watch(const PeerHandle& peer) {
        if (peer->is_timed) {
            return;
        }
        peer->patience.expires_at(peer->progress + limits.unread);
        peer->patience.async_wait([this, peer](const Failure&) {
            peer->is_timed = false;
            if (!peer->socket.is_open() || !peer->is_unread()) {
                return;
            }
            if (Clock::now() >= peer->progress + limits.unread) {
                const int before = peer->held;
                if (!measure(*peer) || peer->held >= before) {
                    return end(peer);
                }
                peer->progress = Clock::now();
            }
            watch(peer);
        });
        peer->is_timed = true;
    }

    void answer(Connection connection, const std::string& line, std::optional<std::size_t> answered) {
        if (const auto entry = peers.find(connection); entry != peers.end()) {
            const PeerHandle peer = entry->second;
            peer->waiting -= answered ? 1 : 0;
            peer->waiting_bytes -= answered.value_or(0);
            push(peer, line);
            settle(peer);
        }
    }

    // The file may be somebody else's by now.
    void close_socket() {
        const std::lock_guard lock(mutex);
        if (!path.empty() && is_file(path, file)) {
            ::unlink(path.c_str());
        }
        path.clear();
    }

    const LineLimits limits;
    Handler handler;
    EndHandler ended;
    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
    Protocol::acceptor listener{context};
    asio::steady_timer crowded{context};
    bool awaits_peers = false;
    std::map<Connection, PeerHandle> peers;
    std::uint64_t last_connection = 0, uses = 0;
    std::size_t bytes = 0;  // of all peers
    bool finishing = false, stopping = false;
    PeerHandle called;  // whose line the handler has

    std::mutex mutex;  // guards what follows
    std::string path;
    struct stat file {};  // the socket's
};

LineServer::LineServer(LineLimits limits) : limits_(std::move(limits)) {}

LineServer::~LineServer() {
    stop();
}

std::uint32_t LineServer::open(const std::string& name) try {
    loop_ = loop_ != nullptr ? std::move(loop_) : std::make_shared<Loop>(limits_);
    Descriptor listener = listen_at(name, limits_.mode);
    const std::lock_guard guard(loop_->mutex);
    if (!listener || ::stat(machine_path(name).c_str(), &loop_->file) != 0) {
        return windows_error(errno);
    }
    loop_->path = machine_path(name);
    post([loop = loop_.get(), next = std::make_shared<Descriptor>(std::move(listener))] {
        loop->listen(std::move(*next));
    });
    return 0;
} catch (const std::system_error& error) {
    return windows_error(error.code().value());
}

std::uint32_t LineServer::start(Handler handler, EndHandler ended) try {
    loop_->handler = std::move(handler);
    loop_->ended = std::move(ended);
    loop_->start(limits_.patient);
    return 0;
} catch (const std::system_error&) {
    return kNotEnoughMemory;
}

bool LineServer::listens_at(const std::string& name) {
    if (loop_ == nullptr) {
        return false;
    }
    const std::lock_guard guard(loop_->mutex);
    return loop_->path == machine_path(name) && is_file(loop_->path, loop_->file);
}

bool LineServer::may_take_long() {
    return loop_->begin_turn();
}

void LineServer::answer(Connection connection, std::string line, std::size_t size) {
    loop_->post_answer(connection, std::move(line), size);
}

void LineServer::send(Connection connection, std::string line) {
    if (!loop_->pause_turn()) {
        return loop_->post_answer(connection, std::move(line), std::nullopt);
    }
    try {
        loop_->answer(connection, line, std::nullopt);
    } catch (const std::bad_alloc&) {  // the client waits in vain
    }
    loop_->go_on();
}

void LineServer::post(std::function<void()> action) {
    asio::post(loop_->context, std::move(action));
}

void LineServer::finish() {
    loop_->close_socket();
    post([loop = loop_.get()] { loop->finish(); });
}

void LineServer::join() {
    loop_->join();
}

void LineServer::stop() {
    if (loop_ != nullptr) {
        loop_->close_socket();
        loop_->context.stop();
        join();
    }
}

}  // namespace platform
