#include "service_entry.h"

#include <windows.h>

#include <cwctype>

#include "platform/text.h"
#include "platform/windows/handles.h"
#include "platform/windows/wide.h"
#include "report.h"
#include "service/service_install.h"

namespace zorvalis {
namespace {

using OwnedService = platform::Owned<::CloseServiceHandle, SC_HANDLE>;
using Clock = std::chrono::steady_clock;

const std::string kTheService = "the service " + platform::to_utf8(kServiceName);

struct Database {
    OwnedService manager, service;
};

// `service` is null where there is no entry.
Database Open(DWORD managerAccess, DWORD access) {
    Database opened;
    opened.manager.reset(::OpenSCManagerW(nullptr, nullptr, managerAccess));
    if (opened.manager == nullptr) {
        Fail("the service manager cannot be opened");
    }
    opened.service.reset(::OpenServiceW(opened.manager.get(), kServiceName, access));
    if (opened.service == nullptr && ::GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) {
        Fail(kTheService + " cannot be opened");
    }
    return opened;
}

[[noreturn]] void FailAtDeleted() {
    Fail(kTheService +
             " has been deleted, but a program still holds it open, and Windows keeps the entry until that ends. Close "
             "the Services window, Task Manager and other programs that show services, or restart Windows; then try "
             "again",
         ERROR_SERVICE_MARKED_FOR_DELETE);
}

// The blocks that the service manager fills; empty when it does not know the question.
std::vector<std::uint64_t> Query(SC_HANDLE service, std::optional<DWORD> level) {
    std::vector<std::uint64_t> block(1024);  // 8 KiB, the most that either call returns
    const auto size = static_cast<DWORD>(block.size() * sizeof block[0]);
    DWORD needed = 0;
    const bool done =
        level ? ::QueryServiceConfig2W(service, *level, reinterpret_cast<BYTE*>(block.data()), size, &needed)
              : ::QueryServiceConfigW(service, reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block.data()), size, &needed);
    if (!done) {
        block.clear();
    }
    return block;  // moved and not copied: its texts are addresses within it
}

std::wstring OrEmpty(const wchar_t* text) {
    return text != nullptr ? text : L"";
}

// For what the service works without: a service manager that does not know it leaves it at that.
void Set(SC_HANDLE service, DWORD level, const void* value, const char* what) {
    if (!::ChangeServiceConfig2W(service, level, const_cast<void*>(value))) {
        if (::GetLastError() != ERROR_INVALID_LEVEL) {
            Fail(kTheService + ": " + what + " cannot be set");
        }
        Say(kTheService + ": this Windows does not know " + what);
    }
}

void SetMore(SC_HANDLE service, const ServiceEntry& entry) {
    const SERVICE_DESCRIPTIONW description = {const_cast<wchar_t*>(entry.description.c_str())};
    Set(service, SERVICE_CONFIG_DESCRIPTION, &description, "the description");
    std::vector<SC_ACTION> actions;
    for (const std::uint32_t milliseconds : entry.restarts) {
        actions.push_back({SC_ACTION_RESTART, milliseconds});
    }
    SC_ACTION unused{};  // with no address and a count of 0 Windows would keep the old ones
    const SERVICE_FAILURE_ACTIONSW recovery = {entry.resetSeconds, nullptr, nullptr, static_cast<DWORD>(actions.size()),
                                               actions.empty() ? &unused : actions.data()};
    Set(service, SERVICE_CONFIG_FAILURE_ACTIONS, &recovery, "recovery");
    const SERVICE_FAILURE_ACTIONS_FLAG flag = {entry.alsoAfterErrors};
    Set(service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &flag, "recovery after a stop with an error");
    const SERVICE_PRESHUTDOWN_INFO shutdown = {entry.preShutdownMilliseconds};
    Set(service, SERVICE_CONFIG_PRESHUTDOWN_INFO, &shutdown, "the time before a shutdown");
}

SERVICE_STATUS_PROCESS StatusOf(SC_HANDLE service) {
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (!::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                                &needed)) {
        Fail(kTheService + " does not tell its state");
    }
    return status;
}

}  // namespace

ServiceEntry WantedEntry(const std::wstring& executable) {
    constexpr std::uint32_t kMinute = 60000;
    ServiceEntry entry;
    entry.type = SERVICE_WIN32_OWN_PROCESS;
    entry.startType = SERVICE_AUTO_START;
    entry.errorControl = SERVICE_ERROR_NORMAL;
    entry.displayName = kServiceName;
    entry.command = L"\"" + executable + L"\"";
    entry.account = L"LocalSystem";
    entry.description =
        L"Records how this notebook is built and used, and sends the records to the maker's server. "
        L"`zorvctl status` tells what it does.";
    entry.resetSeconds = 24 * 60 * 60;
    entry.restarts = {kMinute, 5 * kMinute, 15 * kMinute};
    entry.alsoAfterErrors = true;
    entry.preShutdownMilliseconds = 3 * kMinute;  // its shutdown may wait 60 s twice
    return entry;
}

std::optional<ServiceEntry> ReadEntry() {
    const Database opened = Open(SC_MANAGER_CONNECT, SERVICE_QUERY_CONFIG);
    if (opened.service == nullptr) {
        return std::nullopt;
    }
    const auto block = Query(opened.service.get(), std::nullopt);
    if (block.empty()) {
        Fail(kTheService + " does not tell its configuration");
    }
    const auto& config = *reinterpret_cast<const QUERY_SERVICE_CONFIGW*>(block.data());
    ServiceEntry entry;
    entry.type = config.dwServiceType;
    entry.startType = config.dwStartType;
    entry.errorControl = config.dwErrorControl;
    entry.displayName = OrEmpty(config.lpDisplayName);
    entry.command = OrEmpty(config.lpBinaryPathName);
    entry.account = OrEmpty(config.lpServiceStartName);
    for (const wchar_t* name = config.lpDependencies; name != nullptr && *name != L'\0'; name += wcslen(name) + 1) {
        entry.dependencies += std::wstring(name) + L'\0';
    }
    if (const auto more = Query(opened.service.get(), SERVICE_CONFIG_DESCRIPTION); !more.empty()) {
        entry.description = OrEmpty(reinterpret_cast<const SERVICE_DESCRIPTIONW*>(more.data())->lpDescription);
    }
    if (const auto more = Query(opened.service.get(), SERVICE_CONFIG_FAILURE_ACTIONS); !more.empty()) {
        const auto& recovery = *reinterpret_cast<const SERVICE_FAILURE_ACTIONSW*>(more.data());
        entry.resetSeconds = recovery.dwResetPeriod;
        for (DWORD i = 0; i < recovery.cActions && recovery.lpsaActions[i].Type == SC_ACTION_RESTART; ++i) {
            entry.restarts.push_back(recovery.lpsaActions[i].Delay);
        }
    }
    if (const auto more = Query(opened.service.get(), SERVICE_CONFIG_FAILURE_ACTIONS_FLAG); !more.empty()) {
        entry.alsoAfterErrors =
            reinterpret_cast<const SERVICE_FAILURE_ACTIONS_FLAG*>(more.data())->fFailureActionsOnNonCrashFailures;
    }
    if (const auto more = Query(opened.service.get(), SERVICE_CONFIG_PRESHUTDOWN_INFO); !more.empty()) {
        entry.preShutdownMilliseconds =
            reinterpret_cast<const SERVICE_PRESHUTDOWN_INFO*>(more.data())->dwPreshutdownTimeout;
    }
    return entry;
}

void WriteEntry(const ServiceEntry& entry) {
    Database opened = Open(SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE, SERVICE_CHANGE_CONFIG | SERVICE_START);
    const std::wstring dependencies = entry.dependencies + L'\0';
    bool done = false;
    if (opened.service != nullptr) {
        done = ::ChangeServiceConfigW(opened.service.get(), entry.type, entry.startType, entry.errorControl,
                                      entry.command.c_str(), nullptr, nullptr, dependencies.c_str(),
                                      entry.account.c_str(), L"", entry.displayName.c_str());
    } else {
        opened.service.reset(::CreateServiceW(opened.manager.get(), kServiceName, entry.displayName.c_str(),
                                              SERVICE_CHANGE_CONFIG | SERVICE_START, entry.type, entry.startType,
                                              entry.errorControl, entry.command.c_str(), nullptr, nullptr,
                                              dependencies.c_str(), entry.account.c_str(), L""));
        done = opened.service != nullptr;
    }
    if (!done) {
        if (::GetLastError() == ERROR_SERVICE_MARKED_FOR_DELETE) {
            FailAtDeleted();
        }
        Fail(kTheService + " cannot be registered");
    }
    SetMore(opened.service.get(), entry);
}

void DeleteEntry() {
    {
        const Database opened = Open(SC_MANAGER_CONNECT, DELETE);
        if (opened.service == nullptr) {
            return;
        }
        if (!::DeleteService(opened.service.get()) && ::GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE) {
            Fail(kTheService + " cannot be deleted");
        }
    }
    if (Open(SC_MANAGER_CONNECT, SERVICE_QUERY_STATUS).service != nullptr) {
        Say(kTheService + " is deleted, but a program holds it open; the entry goes when that ends, or with a restart");
    }
}

Json ToJson(const ServiceEntry& entry) {
    return {{"type", entry.type},
            {"startType", entry.startType},
            {"errorControl", entry.errorControl},
            {"displayName", platform::to_utf8(entry.displayName)},
            {"command", platform::to_utf8(entry.command)},
            {"account", platform::to_utf8(entry.account)},
            {"description", platform::to_utf8(entry.description)},
            {"dependencies", platform::to_utf8(entry.dependencies)},
            {"resetSeconds", entry.resetSeconds},
            {"restarts", entry.restarts},
            {"alsoAfterErrors", entry.alsoAfterErrors},
            {"preShutdownMilliseconds", entry.preShutdownMilliseconds}};
}

ServiceEntry FromJson(const Json& json) {
    const auto text = [&](const char* name) { return platform::to_wide(json.at(name).get<std::string>()); };
    ServiceEntry entry;
    json.at("type").get_to(entry.type);
    json.at("startType").get_to(entry.startType);
    json.at("errorControl").get_to(entry.errorControl);
    entry.displayName = text("displayName");
    entry.command = text("command");
    entry.account = text("account");
    entry.description = text("description");
    entry.dependencies = text("dependencies");
    json.at("resetSeconds").get_to(entry.resetSeconds);
    json.at("restarts").get_to(entry.restarts);
    json.at("alsoAfterErrors").get_to(entry.alsoAfterErrors);
    json.at("preShutdownMilliseconds").get_to(entry.preShutdownMilliseconds);
    return entry;
}

std::wstring ExecutableOf(const std::wstring& command) {
    wchar_t expanded[32768] = L"";
    ::ExpandEnvironmentStringsW(command.c_str(), expanded, static_cast<DWORD>(std::size(expanded)));
    std::wstring path = expanded;
    if (!path.empty() && path[0] == L'"') {
        path = path.substr(1, path.find(L'"', 1) - 1);
    } else {
        // Without quotes, as -install writes it: up to the first ".exe" that ends a word.
        std::wstring lower = path;
        for (wchar_t& c : lower) {
            c = static_cast<wchar_t>(std::towlower(c));
        }
        for (std::size_t at = lower.find(L".exe"); at != std::wstring::npos; at = lower.find(L".exe", at + 1)) {
            if (at + 4 == lower.size() || lower[at + 4] == L' ') {
                path.resize(at + 4);
                break;
            }
        }
    }
    const platform::OwnedHandle file(::CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES,
                                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                   OPEN_EXISTING, 0, nullptr));
    wchar_t final[32768] = L"";
    if (file.get() != INVALID_HANDLE_VALUE &&
        ::GetFinalPathNameByHandleW(file.get(), final, static_cast<DWORD>(std::size(final)), 0) > 4) {
        return final + 4;  // without "\\?\"
    }
    return path;
}

bool IsServiceRunning() {
    const Database opened = Open(SC_MANAGER_CONNECT, SERVICE_QUERY_STATUS);
    return opened.service != nullptr && StatusOf(opened.service.get()).dwCurrentState != SERVICE_STOPPED;
}

void StopService(std::chrono::seconds limit) {
    const Database opened = Open(SC_MANAGER_CONNECT, SERVICE_STOP | SERVICE_QUERY_STATUS);
    if (opened.service == nullptr) {
        return Say(kTheService + " is not registered");
    }
    const auto deadline = Clock::now() + limit;
    bool asked = false;
    DWORD state = 0;
    while ((state = StatusOf(opened.service.get()).dwCurrentState) != SERVICE_STOPPED) {
        SERVICE_STATUS reported;
        asked = asked || ::ControlService(opened.service.get(), SERVICE_CONTROL_STOP, &reported);
        const DWORD error = asked ? ERROR_SUCCESS : ::GetLastError();
        // 1061 while it starts or stops already, 1062 when it has just stopped
        if (error != ERROR_SUCCESS && error != ERROR_SERVICE_CANNOT_ACCEPT_CTRL && error != ERROR_SERVICE_NOT_ACTIVE) {
            Fail(kTheService + " cannot be stopped", error);
        }
        if (Clock::now() >= deadline) {
            Fail(kTheService + " has not stopped within " + std::to_string(limit.count()) + " s (state " +
                     std::to_string(state) + "). Nothing else was changed. It may still stop; then try again",
                 ERROR_SERVICE_REQUEST_TIMEOUT);
        }
        ::Sleep(100);
    }
    Say(kTheService + " is stopped");
}

void StartService(std::chrono::seconds limit) {
    const Database opened = Open(SC_MANAGER_CONNECT, SERVICE_START | SERVICE_QUERY_STATUS);
    if (opened.service == nullptr) {
        Fail(kTheService + " cannot be started", ERROR_SERVICE_DOES_NOT_EXIST);
    }
    const auto deadline = Clock::now() + limit;
    for (bool started = false;;) {
        // One that still stops counts as running, and is asked again until it has stopped.
        if (!started && !(started = ::StartServiceW(opened.service.get(), 0, nullptr))) {
            const DWORD error = ::GetLastError();
            if (error == ERROR_SERVICE_DISABLED) {
                return Say(kTheService + " is disabled, and is not started");
            }
            if (error != ERROR_SERVICE_ALREADY_RUNNING) {
                Fail(kTheService + " cannot be started", error);
            }
        }
        const SERVICE_STATUS_PROCESS status = StatusOf(opened.service.get());
        if (status.dwCurrentState == SERVICE_RUNNING) {
            return Say(kTheService + " is started");
        }
        if (status.dwCurrentState == SERVICE_STOPPED && started) {
            if (status.dwWin32ExitCode != ERROR_SUCCESS) {
                Fail(kTheService + " has failed at its start; the event log says why", status.dwWin32ExitCode);
            }
            // As when another program has its endpoint's name. The installation is whole, and the next start may hold.
            return Say(kTheService + " was started and has stopped by itself; the event log says why");
        }
        if (Clock::now() >= deadline) {
            Fail(kTheService + " has not started within " + std::to_string(limit.count()) + " s",
                 ERROR_SERVICE_REQUEST_TIMEOUT);
        }
        ::Sleep(100);
    }
}

}  // namespace zorvalis
