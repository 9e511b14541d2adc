// A trace session is trace.json; messages are lines of trace.log. A thread watches the session file and calls the
// provider's control callback.
#include "platform/trace.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/clock.h"
#include "platform/linux/machine_json.h"
#include "platform/linux/machine_path.h"
#include "platform/linux/whole_file.h"
#include "platform/machine.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr char kSessionFile[] = "trace.json";
constexpr char kLogFile[] = "trace.log";
constexpr std::uint32_t kInvalidHandle = 6;
constexpr std::uint32_t kNoResources = 1450;  // ERROR_NO_SYSTEM_RESOURCES

// A logger is a number that holds the session itself: bit 63 set, the level from bit 32 on, the flags below.
constexpr std::uint64_t kLogger = 1ULL << 63;

struct Provider {
    TraceControl control = nullptr;
    void* context = nullptr;
    std::uint64_t logger = 0;  // 0 when no session is on
    Descriptor changes;        // inotify, on the machine's folder and the session's file
    Descriptor stop;
    std::thread watcher;
};

// The mutex guards the log's descriptor and the list. Never destroyed: threads may still log while the process ends.
struct Shared {
    std::mutex mutex;
    Descriptor log;
    std::map<std::uint64_t, std::unique_ptr<Provider>> providers;
    std::uint64_t last_registration = 0;
};

Shared& shared() {
    static auto* const state = new Shared;
    return *state;
}

// The session as a logger; 0 when there is none.
std::uint64_t read_session() {
    const auto json = read_machine_json(kSessionFile);
    if (!json) {
        return 0;
    }
    const auto member = [&json](const char* name, std::uint64_t most) {
        const auto found = json->find(name);
        const bool sound = found != json->end() && found->is_number_unsigned();
        const std::uint64_t number = sound ? found->get<std::uint64_t>() : 0;
        return number <= most ? number : 0;
    };
    return kLogger | member("level", 0xFF) << 32 | member("flags", 0xFFFFFFFF);
}

// Reads the session anew and tells the provider.
void follow_session(Provider& provider) {
    const std::uint64_t before = provider.logger;
    provider.logger = read_session();
    if (provider.logger != 0) {
        Descriptor log = open_lines(kLogFile);
        {
            const std::lock_guard guard(shared().mutex);
            shared().log = std::move(log);
        }
        provider.control(kTraceEnable, provider.context, &provider.logger);
    } else if (before != 0) {
        provider.control(kTraceDisable, provider.context, &provider.logger);
    }
}

// Takes all waiting changes; true when one is of the session file, or the log was deleted or moved, so that it must be
// opened anew.
bool session_changed(int changes) {
    alignas(inotify_event) std::array<char, 4096> buffer;
    bool changed = false;
    ssize_t size = 0;
    while ((size = retry([&] { return ::read(changes, buffer.data(), buffer.size()); })) > 0) {
        for (ssize_t offset = 0; offset < size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
            const bool goes_away = (event->mask & (IN_DELETE | IN_MOVED_FROM)) != 0;
            changed |= (event->mask & (IN_Q_OVERFLOW | IN_CLOSE_WRITE)) != 0 ||
                       (event->len > 0 && (std::strcmp(event->name, kSessionFile) == 0 ||
                                           (goes_away && std::strcmp(event->name, kLogFile) == 0)));
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return changed;
}

// The folder tells what comes and goes, and the session's file when it was written: a folder that told of all writes
// would wake the watcher for each entry of a log. False when nothing is watched.
bool watch_session(int changes) {
    constexpr std::uint32_t kNames = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
    const bool watched = ::inotify_add_watch(changes, machine_folder().c_str(), kNames) >= 0;
    ::inotify_add_watch(changes, machine_path(kSessionFile).c_str(), IN_CLOSE_WRITE);  // fails while it is missing
    return watched;
}

// Ending an inotify watch takes the kernel longer than a short pass runs. So a process starts to watch only when it has
// lived this long, and then reads the session once more, for what changed until then.
constexpr int kUnwatchedMilliseconds = 100;

// The watcher's thread.
void watch(Provider& provider) try {
    pollfd stop = {provider.stop.get(), POLLIN, 0};
    if (retry([&] { return ::poll(&stop, 1, kUnwatchedMilliseconds); }) != 0) {
        return;
    }
    provider.changes = Descriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!provider.changes || !watch_session(provider.changes.get())) {
        return;  // the session stays as it was at the registration
    }
    follow_session(provider);
    std::array<pollfd, 2> sources = {{{provider.stop.get(), POLLIN, 0}, {provider.changes.get(), POLLIN, 0}}};
    while (retry([&] { return ::poll(sources.data(), sources.size(), -1); }) > 0 && sources[0].revents == 0) {
        if (session_changed(provider.changes.get())) {
            watch_session(provider.changes.get());  // a session's file that is new
            follow_session(provider);
        }
    }
} catch (...) {  // out of memory: the session stays as it is
}

// One line: tabs and line ends are escaped, as docs/stand-in-machine.md says.
std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '\t':
                result += "\\t";
                break;
            case '\r':
                result += "\\r";
                break;
            case '\n':
                result += "\\n";
                break;
            case '\\':
                result += "\\\\";
                break;
            default:
                result += c;
        }
    }
    return result;
}

}  // namespace

std::uint32_t register_trace(TraceControl control, void* context, const Guid&, const Guid&,
                             std::uint64_t& registration) {
    make_folders(machine_folder());
    auto provider = std::make_unique<Provider>();
    provider->control = control;
    provider->context = context;
    provider->stop = Descriptor(::eventfd(0, EFD_CLOEXEC));
    if (!provider->stop) {
        return kNoResources;
    }
    follow_session(*provider);
    const std::lock_guard guard(shared().mutex);
    const std::uint64_t number = ++shared().last_registration;
    Provider& kept = *shared().providers.emplace(number, std::move(provider)).first->second;
    try {
        kept.watcher = std::thread(watch, std::ref(kept));
    } catch (const std::system_error&) {
        shared().providers.erase(number);
        return kNoResources;
    }
    registration = number;
    return 0;
}

std::uint32_t unregister_trace(std::uint64_t registration) {
    std::unique_ptr<Provider> provider;
    {
        const std::lock_guard guard(shared().mutex);
        const auto entry = shared().providers.find(registration);
        if (entry == shared().providers.end()) {
            return kInvalidHandle;
        }
        provider = std::move(entry->second);
        shared().providers.erase(entry);
    }
    ::eventfd_write(provider->stop.get(), 1);
    provider->watcher.join();
    const std::lock_guard guard(shared().mutex);
    if (shared().providers.empty()) {
        const Descriptor closing = std::move(shared().log);
    }
    return 0;
}

std::uint64_t trace_logger(void* buffer) {
    return *static_cast<const std::uint64_t*>(buffer);
}

std::uint8_t trace_level(std::uint64_t logger) {
    return static_cast<std::uint8_t>(logger >> 32 & 0xFF);
}

std::uint32_t trace_flags(std::uint64_t logger) {
    return static_cast<std::uint32_t>(logger & 0xFFFFFFFF);
}

void send_trace(std::uint64_t logger, std::uint32_t, const Guid&, std::uint16_t number, const char* text,
                std::size_t length) {
    if (logger == 0) {
        return;
    }
    const std::int64_t now = now_microseconds();
    std::array<char, 64> start;
    std::snprintf(start.data(), start.size(), "%lld.%06lld\t%d\t%u\t", static_cast<long long>(now / 1000000),
                  static_cast<long long>(now % 1000000), ::getpid(), static_cast<unsigned>(number));
    const std::string line = start.data() + escaped({text, ::strnlen(text, length)}) + "\n";
    const std::lock_guard guard(shared().mutex);
    if (shared().log) {
        write_whole(shared().log.get(), line);
    }
}

}  // namespace platform
