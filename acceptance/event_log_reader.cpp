#include "event_log_reader.h"

#include <windows.h>

#include <winevt.h>

#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

using OwnedEvent = platform::Owned<::EvtClose, EVT_HANDLE>;

constexpr DWORD kPatience = 10000;  // milliseconds
constexpr int kMostEntries = 100;

LogEntry Read(EVT_HANDLE event, EVT_HANDLE system, EVT_HANDLE source) {
    LogEntry entry;
    EVT_VARIANT values[256] = {};  // the values with their texts behind them
    DWORD used = 0;
    DWORD count = 0;
    if (::EvtRender(system, event, EvtRenderEventValues, sizeof values, values, &used, &count) == FALSE) {
        entry.problem = ::GetLastError();
        return entry;
    }
    entry.level = values[EvtSystemLevel].ByteVal;
    entry.number = values[EvtSystemEventID].UInt16Val;
    wchar_t text[2048] = {};
    if (::EvtFormatMessage(source, event, 0, 0, nullptr, EvtFormatMessageEvent, 2048, text, &used) == FALSE) {
        entry.problem = ::GetLastError();
        return entry;
    }
    entry.text = platform::to_utf8(text);
    entry.text.erase(entry.text.find_last_not_of("\r\n") + 1);  // a message file ends each text with a line's end
    return entry;
}

}  // namespace

std::vector<LogEntry> EntriesWith(const std::string& text, unsigned long& error) {
    const std::wstring query =
        L"*[System[Provider[@Name='Zorvalis']] and EventData[Data='" + platform::to_wide(text) + L"']]";
    const OwnedEvent results(
        ::EvtQuery(nullptr, L"Application", query.c_str(), EvtQueryChannelPath | EvtQueryReverseDirection));
    error = results == nullptr ? ::GetLastError() : 0;
    std::vector<LogEntry> entries;
    if (results == nullptr) {
        return entries;
    }
    const OwnedEvent system(::EvtCreateRenderContext(0, nullptr, EvtRenderContextSystem));
    // Null for a source without a message file: then an entry has no text, and its problem says so.
    const OwnedEvent source(::EvtOpenPublisherMetadata(nullptr, L"Zorvalis", nullptr, 0, 0));
    EVT_HANDLE next = nullptr;
    DWORD count = 0;
    while (entries.size() < kMostEntries && ::EvtNext(results.get(), 1, &next, kPatience, 0, &count) != FALSE &&
           count == 1) {
        const OwnedEvent event(next);
        entries.push_back(Read(event.get(), system.get(), source.get()));
    }
    return entries;
}

}  // namespace zorvalis::acceptance
