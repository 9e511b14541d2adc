#include "trace_session.h"

#include <windows.h>

#include <wmistr.h>

#include <evntrace.h>

#include <evntcons.h>
#undef StartTrace  // the product has functions of these names
#undef StopTrace

#include <cstring>
#include <filesystem>
#include <string_view>

#include "common/log.h"
#include "common/trace_provider.h"
#include "kit.h"
#include "platform/text.h"
#include "platform/windows/guid.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kSession[] = L"zorv-acceptance";
constexpr ULONG kHearingTime = 10000;  // milliseconds for the providers to hear that they are enabled

std::wstring FilePath() {
    std::error_code ignored;
    return (std::filesystem::temp_directory_path(ignored) / L"zorv-acceptance.etl").wstring();
}

// What Windows wants for a session: properties with room for the two names behind them.
struct Properties {
    EVENT_TRACE_PROPERTIES head = {};
    wchar_t session[MAX_PATH] = {};
    wchar_t file[MAX_PATH] = {};

    Properties() {
        head.Wnode.BufferSize = sizeof(Properties);
        head.Wnode.Flags = WNODE_FLAG_TRACED_GUID;
        head.Wnode.ClientContext = 1;  // times by the performance counter
        head.LoggerNameOffset = offsetof(Properties, session);
        head.LogFileNameOffset = offsetof(Properties, file);
        FilePath().copy(file, MAX_PATH - 1);
    }
};

// Windows leaves the message's number, GUID, times and process in the header. Should something stand in front of the
// text (the number in the session is one), it ends with a zero.
void TakeMessage(const EVENT_RECORD& record, TraceEvent& event) {
    std::string_view data(static_cast<const char*>(record.UserData), record.UserDataLength);
    if (data.ends_with('\0')) {
        data.remove_suffix(1);
    }
    event.isMessage = true;
    event.before = data.rfind('\0') + 1;
    event.text = data.substr(event.before);
}

void WINAPI Take(EVENT_RECORD* record) {
    TraceEvent event;
    std::memcpy(&event.source, &record->EventHeader.ProviderId, sizeof event.source);
    event.process = record->EventHeader.ProcessId;
    event.number = record->EventHeader.EventDescriptor.Id;
    event.level = record->EventHeader.EventDescriptor.Level;
    if ((record->EventHeader.Flags & EVENT_HEADER_FLAG_TRACE_MESSAGE) != 0) {
        TakeMessage(*record, event);
    } else if ((record->EventHeader.Flags & EVENT_HEADER_FLAG_STRING_ONLY) != 0) {
        const std::wstring text(static_cast<const wchar_t*>(record->UserData),
                                record->UserDataLength / sizeof(wchar_t));
        event.text = platform::to_utf8(std::wstring_view(text).substr(0, text.find(L'\0')));
    } else {
        return;  // the session's own, such as its header
    }
    static_cast<std::vector<TraceEvent>*>(record->UserContext)->push_back(std::move(event));
}

}  // namespace

unsigned long TraceSession::Start(bool numbered) {
    Remove();  // of a kit that was ended
    Properties properties;
    properties.head.LogFileMode = EVENT_TRACE_FILE_MODE_SEQUENTIAL | (numbered ? EVENT_TRACE_USE_LOCAL_SEQUENCE : 0);
    return ::StartTraceW(&handle_, kSession, &properties.head);
}

unsigned long TraceSession::Enable(const platform::Guid& provider, std::uint8_t level, std::uint32_t flags) {
    const GUID guid = platform::to_system(provider);
    return ::EnableTraceEx2(handle_, &guid, EVENT_CONTROL_CODE_ENABLE_PROVIDER, level, flags, 0, kHearingTime, nullptr);
}

unsigned long TraceSession::Disable(const platform::Guid& provider) {
    const GUID guid = platform::to_system(provider);
    return ::EnableTraceEx2(handle_, &guid, EVENT_CONTROL_CODE_DISABLE_PROVIDER, 0, 0, 0, kHearingTime, nullptr);
}

unsigned long TraceSession::Read(std::vector<TraceEvent>& events) {
    Properties properties;
    const ULONG stopped = ::ControlTraceW(handle_, nullptr, &properties.head, EVENT_TRACE_CONTROL_STOP);
    if (stopped != ERROR_SUCCESS) {
        return stopped;
    }
    std::wstring path = FilePath();
    EVENT_TRACE_LOGFILEW file = {};
    file.LogFileName = path.data();
    file.ProcessTraceMode = PROCESS_TRACE_MODE_EVENT_RECORD;
    file.EventRecordCallback = Take;
    file.Context = &events;
    TRACEHANDLE reading = ::OpenTraceW(&file);
    if (reading == INVALID_PROCESSTRACE_HANDLE) {
        return ::GetLastError();
    }
    const ULONG read = ::ProcessTrace(&reading, 1, nullptr, nullptr);
    ::CloseTrace(reading);
    return read;
}

void TraceSession::Remove() {
    Properties properties;
    ::ControlTraceW(0, kSession, &properties.head, EVENT_TRACE_CONTROL_STOP);
    ::DeleteFileW(FilePath().c_str());
}

std::vector<std::string> LogLinesOf(const std::function<void()>& action, std::string& problem) {
    TraceSession session;
    unsigned long error = session.Start(true);
    if (error == ERROR_SUCCESS) {
        StartTrace();
        error = session.Enable(kTraceProvider, 4, 1);
    }
    action();
    StopTrace();
    std::vector<TraceEvent> events;
    if (error == ERROR_SUCCESS) {
        error = session.Read(events);
    }
    problem = error == ERROR_SUCCESS ? "" : "no trace session: " + ErrorText(error);
    std::vector<std::string> lines;
    for (const TraceEvent& event : events) {
        if (event.process == ::GetCurrentProcessId()) {
            lines.push_back(event.text);
        }
    }
    return lines;
}

}  // namespace zorvalis::acceptance
