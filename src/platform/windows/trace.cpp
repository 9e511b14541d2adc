// The trace provider by Windows' event tracing.
#include "platform/trace.h"

#include <windows.h>

#include <wmistr.h>

#include <evntrace.h>

#include <mutex>

#include "platform/windows/guid.h"

namespace platform {
namespace {

std::mutex control_mutex;
TraceControl provider_control = nullptr;  // a process has one provider at a time

// The lock is held during the call: `unregister_trace` waits for it, so that no call runs after it has returned.
ULONG WINAPI forward_control(WMIDPREQUESTCODE request, void* context, ULONG*, void* buffer) {
    const std::lock_guard guard(control_mutex);
    return provider_control != nullptr ? provider_control(request, context, buffer) : ERROR_SUCCESS;
}

void set_control(TraceControl control) {
    const std::lock_guard guard(control_mutex);
    provider_control = control;
}

}  // namespace

std::uint32_t register_trace(TraceControl control, void* context, const Guid& provider, const Guid& messages,
                             std::uint64_t& registration) {
    const GUID provider_guid = to_system(provider);
    const GUID messages_guid = to_system(messages);
    TRACE_GUID_REGISTRATION classes = {&messages_guid, nullptr};
    TRACEHANDLE handle = 0;
    set_control(control);
    const ULONG status =
        ::RegisterTraceGuidsW(forward_control, context, &provider_guid, 1, &classes, nullptr, nullptr, &handle);
    if (status == ERROR_SUCCESS) {
        registration = handle;
    } else {
        set_control(nullptr);
    }
    return status;
}

std::uint32_t unregister_trace(std::uint64_t registration) {
    const ULONG status = ::UnregisterTraceGuids(registration);
    if (status == ERROR_SUCCESS) {
        set_control(nullptr);
    }
    return status;
}

std::uint64_t trace_logger(void* buffer) {
    return ::GetTraceLoggerHandle(buffer);
}

std::uint8_t trace_level(std::uint64_t logger) {
    return ::GetTraceEnableLevel(logger);
}

std::uint32_t trace_flags(std::uint64_t logger) {
    return ::GetTraceEnableFlags(logger);
}

void send_trace(std::uint64_t logger, std::uint32_t message_flags, const Guid& messages, std::uint16_t number,
                const char* text, std::size_t length) {
    const GUID guid = to_system(messages);
    // The arguments after `number` are pairs of address and size, ended by a null address.
    ::TraceMessage(logger, message_flags, &guid, number, text, length, nullptr);
}

}  // namespace platform
