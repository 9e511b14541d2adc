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

std::vector<std::string> Traced(const std::function<void()>& action) {
    const std::string session = platform::machine_folder() + "/trace.json",
                      log = platform::machine_folder() + "/trace.log";
    write_text(session, R"({"level": 4, "flags": 1})");
    write_text(log, "");
    zorvalis::StartTrace();
    action();
    zorvalis::StopTrace();
    std::vector<std::string> lines;
    std::istringstream text(read_text(log));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line.substr(line.rfind('\t') + 1));  // behind time, process and number
    }
    return lines;
}

#endif
