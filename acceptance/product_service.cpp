#include "product_service.h"

#include <algorithm>

#include "kit.h"
#include "service/service_install.h"

namespace zorvalis::acceptance {
namespace {

constexpr int kStateSeconds = 30;
constexpr std::int64_t kTicksPerMillisecond = 10000;
constexpr std::int64_t kMillisecondsTo1970 = 11644473600000;

std::int64_t MillisecondsOf(const FILETIME& time) {
    return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) /
               kTicksPerMillisecond -
           kMillisecondsTo1970;
}

OwnedService OpenOrFail(Findings& findings, DWORD rights) {
    OwnedService service = OpenProduct(rights | SERVICE_QUERY_STATUS);
    if (service == nullptr) {
        findings.Fail("the service can be opened: " + ErrorText(::GetLastError()));
    }
    return service;
}

std::string StateText(SC_HANDLE service) {
    const auto status = StatusOf(service);
    return status ? "its state is " + std::to_string(status->dwCurrentState) + ", its exit code " +
                        std::to_string(status->dwWin32ExitCode)
                  : "its state is not known: " + ErrorText(::GetLastError());
}

}  // namespace

OwnedService OpenTheService(const std::wstring& name, DWORD rights) {
    const OwnedService manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return OwnedService(manager == nullptr ? nullptr : ::OpenServiceW(manager.get(), name.c_str(), rights));
}

OwnedService OpenProduct(DWORD rights) {
    return OpenTheService(kServiceName, rights);
}

std::optional<SERVICE_STATUS_PROCESS> StatusOf(SC_HANDLE service) {
    SERVICE_STATUS_PROCESS status = {};
    DWORD size = 0;
    if (::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                               &size) == FALSE) {
        return std::nullopt;
    }
    return status;
}

bool WaitForState(SC_HANDLE service, DWORD state, int seconds) {
    for (int tenth = 0; tenth < 10 * seconds; ++tenth) {
        const auto status = StatusOf(service);
        if (status && status->dwCurrentState == state) {
            return true;
        }
        ::Sleep(100);
    }
    return false;
}

void NeedRunnable(Findings& findings) {
    if (::GetProcAddress(::GetModuleHandleW(L"kernelbase.dll"), "DeriveCapabilitySidsFromName") == nullptr) {
        findings.Impossible("without DeriveCapabilitySidsFromName, which this Windows lacks, the service ends itself");
    }
}

void StartProduct(Findings& findings) {
    NeedRunnable(findings);
    const OwnedService service = OpenOrFail(findings, SERVICE_START);
    if (::StartServiceW(service.get(), 0, nullptr) == FALSE && ::GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
        findings.Fail("the service can be started: " + ErrorText(::GetLastError()));
    }
    if (!WaitForState(service.get(), SERVICE_RUNNING, kStateSeconds)) {
        findings.Fail("the service runs within half a minute: " + StateText(service.get()));
    }
}

void StopProduct(Findings& findings) {
    const OwnedService service = OpenOrFail(findings, SERVICE_STOP);
    SERVICE_STATUS status = {};
    const platform::OwnedHandle process = ProductProcess(SYNCHRONIZE);
    if (::ControlService(service.get(), SERVICE_CONTROL_STOP, &status) == FALSE &&
        ::GetLastError() != ERROR_SERVICE_NOT_ACTIVE) {
        findings.Fail("the service takes a stop: " + ErrorText(::GetLastError()));
    }
    if (!WaitForState(service.get(), SERVICE_STOPPED, kStateSeconds)) {
        findings.Fail("the service stops within half a minute: " + StateText(service.get()));
    }
    if (process != nullptr && ::WaitForSingleObject(process.get(), kStateSeconds * 1000) != WAIT_OBJECT_0) {
        findings.Fail("the service's process ends within half a minute of its stop");
    }
}

platform::OwnedHandle ProductProcess(DWORD rights) {
    EnableRight(L"SeDebugPrivilege");  // LocalSystem's processes are not an administrator's without it
    const OwnedService service = OpenProduct(SERVICE_QUERY_STATUS);
    const auto status = StatusOf(service.get());
    return platform::OwnedHandle(
        !status || status->dwProcessId == 0 ? nullptr : ::OpenProcess(rights, FALSE, status->dwProcessId));
}

std::int64_t BeganAt(Findings& findings) {
    const platform::OwnedHandle process = ProductProcess(PROCESS_QUERY_LIMITED_INFORMATION);
    FILETIME begun = {}, other[3] = {};
    if (process == nullptr || ::GetProcessTimes(process.get(), &begun, &other[0], &other[1], &other[2]) == FALSE) {
        findings.Fail("the service's process tells when it began: " + ErrorText(::GetLastError()));
    }
    return MillisecondsOf(begun);
}

std::int64_t Milliseconds1970() {
    FILETIME now = {};
    ::GetSystemTimeAsFileTime(&now);
    return MillisecondsOf(now);
}

std::int64_t WaitForLateStart(Findings& findings) {
    constexpr std::int64_t kLate = 122000;  // milliseconds
    StartProduct(findings);
    const std::int64_t begun = BeganAt(findings);
    ::Sleep(static_cast<DWORD>(std::clamp<std::int64_t>(kLate - (Milliseconds1970() - begun), 0, kLate)));
    return begun / 1000;
}

}  // namespace zorvalis::acceptance
