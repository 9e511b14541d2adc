// A text is a line of provider.jsonl. There is one provider and one keyword, so neither is written.
#include "platform/event_provider.h"

#include <fcntl.h>

#include <mutex>
#include <set>

#include "platform/clock.h"
#include "platform/linux/machine_json.h"
#include "platform/linux/machine_path.h"
#include "platform/linux/wide.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr char kLog[] = "provider.jsonl";

// Never destroyed: threads may still write while the process ends.
struct Shared {
    std::mutex mutex;
    std::set<std::uint64_t> registered;
    std::uint64_t last = 0;
};

Shared& shared() {
    static auto* const state = new Shared;
    return *state;
}

}  // namespace

std::uint32_t register_event_provider(const Guid&, std::uint64_t& registration) {
    // Fails as Windows may when the log cannot be written, say a pipe without a reader. Makes no file: the first text
    // does.
    const Descriptor log(::open(machine_path(kLog).c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC));
    if (!log && errno != ENOENT) {
        return windows_error(errno);
    }
    const std::lock_guard guard(shared().mutex);
    registration = ++shared().last;
    shared().registered.insert(registration);
    return 0;
}

void unregister_event_provider(std::uint64_t registration) {
    const std::lock_guard guard(shared().mutex);
    shared().registered.erase(registration);
}

void write_event_text(std::uint64_t registration, std::uint8_t level, std::uint64_t, const wchar_t* text) {
    const std::lock_guard guard(shared().mutex);
    if (shared().registered.count(registration) != 0) {
        const auto time = static_cast<double>(now_microseconds()) / 1e6;
        append_json(kLog, {{"time", time}, {"level", level}, {"text", to_utf8(text)}});
    }
}

}  // namespace platform
