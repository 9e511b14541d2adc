#include "platform/linux/event_source.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/error.h"
#include "platform/linux/machine_socket.h"
#include "platform/linux/step_failure.h"

namespace platform {

struct EventObject::State {
    const zorvalis::Json& properties;
};

namespace {

constexpr char kSocket[] = "events";
constexpr std::size_t kLongestLine = 4096;
constexpr std::size_t kMostClients = 256;
constexpr int kAcceptedAtOnce = 16;
constexpr int kPauseMilliseconds = 1000;
constexpr std::uint32_t kNoResources = 1450;  // ERROR_NO_SYSTEM_RESOURCES

using Receivers = std::vector<std::shared_ptr<EventReceiver>>;

struct Client {
    Descriptor socket;
    std::string line;         // what came since the last line end
    std::uint64_t heard = 0;  // number of the round
};

// What subscribers and the thread share. Never destroyed, as the thread does not end.
struct Shared {
    std::mutex mutex;
    Receivers receivers;
    Receivers ended;      // to be told
    Descriptor listener;  // on its way to the thread
    Descriptor wake;      // an event descriptor; there is a thread when there is one
    std::string path;     // of the socket that the thread listens on, or will
    dev_t device = 0;
    ino_t number = 0;
};

Shared& shared() {
    static auto* const state = new Shared;
    return *state;
}

class Server {
public:
    [[noreturn]] void run() {
        for (;;) {
            wait();
            take_changes();
            if (polled_[1].revents != 0) {
                accept_clients();
            }
            serve_clients();
        }
    }

private:
    // A listener that could not accept rests for a moment, or poll would return at once for ever.
    void wait() {
        polled_ = {{shared().wake.get(), POLLIN, 0}, {paused_ ? -1 : listener_.get(), POLLIN, 0}};
        for (const Client& client : clients_) {
            polled_.push_back({client.socket.get(), POLLIN, 0});
        }
        const int timeout = std::exchange(paused_, false) ? kPauseMilliseconds : -1;
        retry([&] { return ::poll(polled_.data(), polled_.size(), timeout); });
        ++round_;
        auto client = clients_.begin();
        for (std::size_t i = 2; i < polled_.size(); ++i, ++client) {
            client->heard = polled_[i].revents != 0 ? round_ : client->heard;
        }
    }

    void take_changes() {
        if (polled_[0].revents == 0) {
            return;
        }
        Receivers ended;
        {
            const std::lock_guard guard(shared().mutex);
            eventfd_t ignored = 0;
            ::eventfd_read(shared().wake.get(), &ignored);
            ended.swap(shared().ended);
            if (shared().listener) {  // of another machine, or the socket's file was taken away
                listener_ = std::exchange(shared().listener, Descriptor());
                clients_.clear();
                polled_[1].revents = POLLIN;
            }
        }
        for (const auto& receiver : ended) {
            guarded([&] { receiver->SetStatus(0); });
        }
    }

    void accept_clients() {
        for (int i = 0; i < kAcceptedAtOnce; ++i) {
            Descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
            if (!socket) {
                paused_ = errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
                if (paused_) {
                    drop_silent_client();
                }
                return;
            }
            if (clients_.size() >= kMostClients) {
                drop_silent_client();
            }
            clients_.push_back({std::move(socket), "", round_});
        }
    }

    // Whoever has been silent for longest makes room.
    void drop_silent_client() {
        const auto client = std::min_element(clients_.begin(), clients_.end(),
                                             [](const Client& a, const Client& b) { return a.heard < b.heard; });
        if (client != clients_.end()) {
            serve(*client);
            clients_.erase(client);
        }
    }

    void serve_clients() {
        for (auto client = clients_.begin(); client != clients_.end();) {
            client = client->heard == round_ && !serve(*client) ? clients_.erase(client) : std::next(client);
        }
    }

    // False when there is nothing more to come.
    bool serve(Client& client) {
        std::array<char, kLongestLine> buffer;
        const ssize_t count = retry([&] { return ::read(client.socket.get(), buffer.data(), buffer.size()); });
        if (count <= 0) {
            if (count == 0) {
                deliver(client.line);  // the last one needs no line end
            }
            return count < 0 && errno == EAGAIN;
        }
        std::string_view rest(buffer.data(), static_cast<std::size_t>(count));
        for (std::size_t end; (end = rest.find('\n')) != std::string_view::npos; rest.remove_prefix(end + 1)) {
            deliver(client.line.append(rest.substr(0, end)));
            client.line.clear();
        }
        client.line += rest;
        return client.line.size() <= kLongestLine;
    }

    static void deliver(const std::string& line) {
        Receivers receivers;
        {
            const std::lock_guard guard(shared().mutex);
            receivers = shared().receivers;
        }
        if (receivers.empty() || line.empty()) {
            return;
        }
        guarded([&] {
            const zorvalis::Json properties = zorvalis::ParseJson(line);
            EventObject::State state = {properties};
            for (const auto& receiver : receivers) {
                if (properties.is_object()) {
                    receiver->Indicate(EventObject(state));
                }
            }
        });
    }

    // What is no event, and what a receiver lets out, is nothing to anybody.
    template <class Action>
    static void guarded(Action action) {
        try {
            action();
        } catch (...) {
        }
    }

    Descriptor listener_;
    std::list<Client> clients_;
    std::vector<pollfd> polled_;  // wake, listener, clients
    std::uint64_t round_ = 0;
    bool paused_ = false;
};

bool is_listening() {
    struct stat status {};
    return shared().path == socket_path(kSocket) && ::stat(shared().path.c_str(), &status) == 0 &&
           status.st_dev == shared().device && status.st_ino == shared().number;
}

// 0 or errno.
int listen() {
    Descriptor listener = listen_at(kSocket);
    const std::string path = socket_path(kSocket);
    struct stat status {};
    if (!listener || ::stat(path.c_str(), &status) != 0) {
        return errno;
    }
    if (!shared().wake) {
        Descriptor wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!wake) {
            return errno;
        }
        shared().wake = std::move(wake);
        std::thread([] { Server().run(); }).detach();
    }
    shared().listener = std::move(listener);
    shared().path = path;
    shared().device = status.st_dev;
    shared().number = status.st_ino;
    ::eventfd_write(shared().wake.get(), 1);
    return 0;
}

}  // namespace

bool EventObject::property_names(std::vector<std::wstring>& names) const {
    if (step_status("property_names") < 0) {
        return false;
    }
    names.clear();
    for (const auto& property : state_.properties.items()) {
        names.push_back(to_wide(property.key()).value_or(L""));
    }
    return true;
}

bool EventObject::integer(const std::wstring& property, std::int32_t& value) const {
    const auto found = state_.properties.find(to_utf8(property));
    if (step_status("integer") < 0 || found == state_.properties.end() || !found->is_number_integer()) {
        return false;
    }
    using Limits = std::numeric_limits<std::int32_t>;
    const bool large = found->is_number_unsigned() && found->get<std::uint64_t>() > std::uint64_t{Limits::max()};
    const auto number = found->get<std::int64_t>();
    if (large || number < Limits::min()) {
        return false;
    }
    value = static_cast<std::int32_t>(number);
    return true;
}

std::uint32_t add_event_receiver(const std::shared_ptr<EventReceiver>& receiver) {
    const std::lock_guard guard(shared().mutex);
    try {
        const int error = is_listening() ? 0 : listen();
        if (error != 0) {
            return windows_error(error);
        }
    } catch (const std::system_error&) {
        shared().wake = Descriptor();
        return kNoResources;
    }
    shared().receivers.push_back(receiver);
    return 0;
}

void remove_event_receiver(const std::shared_ptr<EventReceiver>& receiver, bool tell) {
    const std::lock_guard guard(shared().mutex);
    const auto found = std::find(shared().receivers.begin(), shared().receivers.end(), receiver);
    if (found == shared().receivers.end()) {
        return;
    }
    if (tell) {
        shared().ended.push_back(std::move(*found));
        ::eventfd_write(shared().wake.get(), 1);
    }
    shared().receivers.erase(found);
}

}  // namespace platform
