// By Windows' event tracing (EventRegister, EventWriteString).
#include "platform/event_provider.h"

#include <windows.h>

#include <evntprov.h>

#include "platform/windows/guid.h"

namespace platform {

std::uint32_t register_event_provider(const Guid& provider, std::uint64_t& registration) {
    const GUID guid = to_system(provider);
    REGHANDLE handle = 0;
    const ULONG status = ::EventRegister(&guid, nullptr, nullptr, &handle);
    if (status == ERROR_SUCCESS) {
        registration = handle;
    }
    return status;
}

void unregister_event_provider(std::uint64_t registration) {
    ::EventUnregister(registration);
}

void write_event_text(std::uint64_t registration, std::uint8_t level, std::uint64_t keyword, const wchar_t* text) {
    ::EventWriteString(registration, level, keyword, text);
}

}  // namespace platform
