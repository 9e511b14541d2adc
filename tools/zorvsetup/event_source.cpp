#include "event_source.h"

#include <windows.h>

#include "platform/registry.h"
#include "report.h"
#include "service/service_install.h"

namespace zorvalis {
namespace {

constexpr DWORD kTypes = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;

std::wstring Key() {
    return std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\") + kServiceName;
}

}  // namespace

std::optional<std::wstring> ReadEventSource() {
    wchar_t file[1024] = L"";
    DWORD size = sizeof file;
    const LSTATUS error = ::RegGetValueW(HKEY_LOCAL_MACHINE, Key().c_str(), L"EventMessageFile",
                                         RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, file, &size);
    return error == ERROR_SUCCESS ? std::optional<std::wstring>(file) : std::nullopt;
}

void WriteEventSource(const std::wstring& file) {
    const LSTATUS wrote = ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, Key().c_str(), L"EventMessageFile", REG_EXPAND_SZ,
                                            file.c_str(), static_cast<DWORD>((file.size() + 1) * sizeof(wchar_t)));
    if (wrote != ERROR_SUCCESS) {
        Fail("the event source cannot be registered", wrote);
    }
    if (!platform::write_registry_dword(platform::RegistryRoot::local_machine, Key(), L"TypesSupported", kTypes)) {
        Fail("the event source cannot be registered");
    }
}

void DeleteEventSource() {
    const LSTATUS error = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, Key().c_str());
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) {
        Fail("the event source cannot be deleted", error);
    }
}

}  // namespace zorvalis
