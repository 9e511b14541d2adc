// An entry is a line of eventlog.jsonl, which is opened for each: to ask whether an open one is still the file of that
// name takes as long.
#include "platform/event_log.h"

#include <string>

#include "base/json_text.h"
#include "platform/clock.h"
#include "platform/linux/machine_json.h"
#include "platform/linux/whole_file.h"
#include "platform/linux/wide.h"

namespace platform {
namespace {

// Each call of an application writes two entries, and the JSON library takes longer to build and write an object of
// their texts than the kernel takes to append the line.
std::string quoted(const wchar_t* wide) {
    std::string text = to_utf8(wide);
    return zorvalis::IsPlainJsonText(text) ? '"' + text + '"' : zorvalis::DumpJson(text);
}

}  // namespace

bool report_event(const wchar_t* source, std::uint16_t type, const wchar_t* first, const wchar_t* second) {
    const auto time = static_cast<double>(now_microseconds()) / 1e6;
    const Descriptor log = open_lines("eventlog.jsonl");
    return log && write_whole(log.get(), "{\"source\":" + quoted(source) + ",\"strings\":[" + quoted(first) + "," +
                                             quoted(second) + "],\"time\":" + zorvalis::DumpJson(time) +
                                             ",\"type\":" + std::to_string(type) + "}\n");
}

}  // namespace platform
