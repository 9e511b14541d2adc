#include "common/log.h"

#include <atomic>
#include <cstring>

#include "common/trace_provider.h"
#include "common/wide_to_utf8.h"
#include "platform/event_log.h"
#include "platform/lock.h"
#include "platform/trace.h"

namespace zorvalis {
namespace {

constexpr platform::Guid kTraceMessages = {
    0x57b959a4, 0xc260, 0x3299, {0x33, 0xa3, 0x27, 0x53, 0xb4, 0x16, 0xe0, 0xa4}};

constexpr std::uint32_t kMessageFlags = 0x2B;  // send along: sequence, GUID, timestamp, system information
constexpr std::uint16_t kNarrowMessage = 10;
constexpr std::uint16_t kWideMessage = 11;
constexpr std::uint8_t kLevel = 4;  // every message has this level and this flag; a session must ask for both
constexpr std::uint32_t kFlag = 1;
constexpr std::uint32_t kInvalidParameter = 0x57;

// Written by ControlTrace, on a thread of Windows, and by start and stop; read by every thread that logs, without a
// lock.
struct TraceControlBlock {
    std::atomic<std::uint64_t> logger{0};
    std::atomic<std::uint8_t> level{0};
    std::atomic<std::uint32_t> flags{0};
    std::atomic<std::uint64_t> registration{0};
    std::atomic<TraceControlBlock*> started{nullptr};  // this block between start and stop, else null
};

TraceControlBlock controlBlock;

// Called when a trace session turns the provider on or off. Returns a Windows error number, 0 for success.
std::uint32_t ControlTrace(std::uint32_t request, void* context, void* buffer) {
    auto& block = *static_cast<TraceControlBlock*>(context);
    switch (request) {
        case platform::kTraceEnable: {
            const std::uint64_t logger = platform::trace_logger(buffer);
            block.level = platform::trace_level(logger);
            block.flags = platform::trace_flags(logger);
            block.logger = logger;
            return 0;
        }
        case platform::kTraceDisable:
            block.logger = 0;
            block.level = 0;
            block.flags = 0;
            return 0;
        default:
            return kInvalidParameter;
    }
}

bool IsTraced() {
    return controlBlock.started != nullptr && (controlBlock.flags & kFlag) != 0 && controlBlock.level >= kLevel;
}

void SendTrace(const char* text, std::uint16_t number) {
    platform::send_trace(controlBlock.logger, kMessageFlags, kTraceMessages, number, text, std::strlen(text) + 1);
}

// Never destroyed: pool threads may still report while the process ends.
platform::Lock& EventLogLock() {
    static auto* const eventLogLock = new platform::Lock;
    return *eventLogLock;
}

}  // namespace

void StartTrace() {
    controlBlock.started = &controlBlock;
    std::uint64_t registration = 0;
    platform::register_trace(ControlTrace, &controlBlock, kTraceProvider, kTraceMessages, registration);
    controlBlock.registration = registration;
}

void StopTrace() {
    platform::unregister_trace(controlBlock.registration.exchange(0));
    controlBlock.started = nullptr;
}

void LogMessage(std::string text) {
    if (IsTraced()) {
        SendTrace(text.c_str(), kNarrowMessage);
    }
}

void LogMessageW(std::wstring text) {
    if (IsTraced()) {
        SendTrace(WideToUtf8(text).c_str(), kWideMessage);
    }
}

void ReportServiceEvent(const wchar_t* text, std::uint16_t type) {
    bool owned = false;
    try {
        owned = EventLogLock().wait(10000);
        if (owned) {
            platform::report_event(L"Zorvalis", type, L"Zorvalis", text);
        }
    } catch (...) {  // out of memory the entry is lost: the caller may be handling an exception itself
    }
    if (owned) {
        EventLogLock().release();
    }
}

}  // namespace zorvalis
