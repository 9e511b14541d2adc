// A text is a line of provider.jsonl. There is one provider and one keyword, so neither is written.
#include "platform/event_provider.h"

#include <fcntl.h>

#include <atomic>

#include "platform/clock.h"
#include "platform/linux/machine_json.h"
#include "platform/linux/machine_path.h"
#include "platform/linux/wide.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr char kLog[] = "provider.jsonl";

std::atomic<int> registered{0};

}  // namespace

std::uint32_t register_event_provider(const Guid&, std::uint64_t& registration) {
    // Fails as Windows may when the log cannot be written, say a pipe without a reader. Makes no file: the first text
    // does.
    const Descriptor log(::open(machine_path(kLog).c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC));
    if (!log && errno != ENOENT) {
        return windows_error(errno);
    }
    registration = 1;
    ++registered;
    return 0;
}

void unregister_event_provider(std::uint64_t) {
    --registered;
}

void write_event_text(std::uint64_t, std::uint8_t level, std::uint64_t, const wchar_t* text) {
    if (registered > 0) {
        const auto time = static_cast<double>(now_microseconds()) / 1e6;
        append_json(kLog, {{"time", time}, {"level", level}, {"text", to_utf8(text)}});
    }
}

}  // namespace platform
