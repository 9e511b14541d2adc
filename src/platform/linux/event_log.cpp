// An entry is a line of eventlog.jsonl.
#include "platform/event_log.h"

#include "platform/clock.h"
#include "platform/linux/machine_json.h"
#include "platform/linux/wide.h"

namespace platform {

bool report_event(const wchar_t* source, std::uint16_t type, const wchar_t* first, const wchar_t* second) {
    const auto time = static_cast<double>(now_microseconds()) / 1e6;
    return append_json(
        "eventlog.jsonl",
        {{"time", time}, {"type", type}, {"source", to_utf8(source)}, {"strings", {to_utf8(first), to_utf8(second)}}});
}

}  // namespace platform
