// Fills the names of event source, trace provider and task into commands of Windows.
#include "windows_tools.h"

#include <cstdio>

#include "common/trace_provider.h"
#include "common/wide_to_utf8.h"
#include "jobs/task_scheduler_setting.h"

namespace zorvalis {

std::string EventLogCommand(std::size_t last) {
    return "wevtutil.exe qe Application \"/q:*[System[Provider[@Name='Zorvalis']]]\" /rd:true /f:text" +
           (last > 0 ? " /c:" + std::to_string(last) : "");
}

std::string TraceCommands(int level, std::uint32_t flags) {
    const platform::Guid& id = kTraceProvider;
    char guid[64];
    std::snprintf(guid, sizeof guid, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  static_cast<unsigned>(id.data1), static_cast<unsigned>(id.data2), static_cast<unsigned>(id.data3),
                  id.data4[0], id.data4[1], id.data4[2], id.data4[3], id.data4[4], id.data4[5], id.data4[6],
                  id.data4[7]);
    char session[200];
    std::snprintf(session, sizeof session, "`logman.exe start Zorvalis -p \"%s\" 0x%X %d -o zorvalis.etl -ets`", guid,
                  static_cast<unsigned>(flags), level);
    return std::string(session) +
           ", and ended by `logman.exe stop Zorvalis -ets`; administrator.md says how its texts are read";
}

std::string TaskCommand(const std::string& verb) {
    return "schtasks.exe " + verb.substr(0, verb.find(' ')) + " /tn " + WideToUtf8(kCollectionTask) +
           (verb.find(' ') == std::string::npos ? "" : verb.substr(verb.find(' ')));
}

}  // namespace zorvalis
