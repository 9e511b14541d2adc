#include "support/traced.h"

#ifdef _WIN32
#include <windows.h>

#include <wmistr.h>

#include <evntrace.h>
#undef StartTrace  // the product has functions of these names
#undef StopTrace
#else
#include <sstream>

#include "platform/machine.h"
#include "support/machine.h"
#endif

#include "common/log.h"

#ifdef _WIN32
#include <cstdarg>

#include "support/import_hook.h"

namespace {

std::vector<std::string> lines;

ULONG Take(TRACEHANDLE, ULONG, const GUID*, USHORT number, ...) {
    va_list arguments;
    va_start(arguments, number);
    lines.emplace_back(va_arg(arguments, const char*));
    va_end(arguments);
    return ERROR_SUCCESS;
}

}  // namespace

// Wine's sessions take nothing, so it is one of the test's own.
std::vector<std::string> Traced(const std::function<void()>& action) {
    lines.clear();
    HOOK(RegisterTraceGuidsW,
         [](WMIDPREQUEST callback, void* context, const GUID*, ULONG, TRACE_GUID_REGISTRATION*, const wchar_t*,
            const wchar_t*, TRACEHANDLE*) -> ULONG { return callback(WMI_ENABLE_EVENTS, context, nullptr, nullptr); });
    HOOK(GetTraceLoggerHandle, [](void*) -> TRACEHANDLE { return 1; });
    HOOK(GetTraceEnableLevel, [](TRACEHANDLE) -> UCHAR { return 4; });
    HOOK(GetTraceEnableFlags, [](TRACEHANDLE) -> ULONG { return 1; });
    HOOK(UnregisterTraceGuids, [](TRACEHANDLE) -> ULONG { return ERROR_SUCCESS; });
    HOOK(TraceMessage, Take);
    zorvalis::StartTrace();
    action();
    zorvalis::StopTrace();
    return lines;
}

#else

void SetSession(int level, unsigned flags) {
    write_text(platform::machine_folder() + "/trace.json",
               "{\"level\": " + std::to_string(level) + ", \"flags\": " + std::to_string(flags) + "}");
}

std::vector<std::string> TraceLines() {
    std::vector<std::string> lines;
    std::istringstream log(read_text(platform::machine_folder() + "/trace.log"));
    for (std::string line; std::getline(log, line);) {
        for (int field = 0; field < 3; ++field) {  // time, process and number
            line.erase(0, line.find('\t') + 1);
        }
        for (std::size_t at = 0; (at = line.find("\\\\", at)) != std::string::npos; ++at) {
            line.erase(at, 1);  // as the log escapes it
        }
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> Traced(const std::function<void()>& action) {
    write_text(platform::machine_folder() + "/trace.log", "");
    SetSession(4, 1);
    zorvalis::StartTrace();
    action();
    zorvalis::StopTrace();
    return TraceLines();
}

#endif
