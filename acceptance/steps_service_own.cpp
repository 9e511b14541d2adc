// A service of the kit's own, "zorv-acceptance", on the functions by which the product is one: for what the product's
// does only when something is wrong.
#include <windows.h>

#include "kit.h"
#include "part.h"
#include "platform/service.h"
#include "platform/windows/wide.h"
#include "process.h"
#include "product_service.h"
#include "service/power_settings.h"
#include "state_reports.h"
#include "steps_service.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kOwnService[] = L"zorv-acceptance";
constexpr char kTold[] = "what the kit's service was told";
constexpr std::uint32_t kAcceptStopAndPower = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_POWEREVENT;

platform::ServiceStatusHandle statusHandle = 0;
bool hangs = false;
HANDLE stopped = nullptr;

void Report(std::uint32_t state) {
    platform::set_service_status(statusHandle, {SERVICE_WIN32_OWN_PROCESS, state, kAcceptStopAndPower, 0, 0, 0, 0});
}

// For the step, from threads that no exception may leave. It misses what cannot be kept.
void Tell(const std::string& words) {
    try {
        Keep(kTold, Kept(kTold) + words);
    } catch (const std::exception&) {
    }
}

std::uint32_t Handle(std::uint32_t control, std::uint32_t type, void* data, void*) {
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOPPED);
        ::SetEvent(stopped);
    } else if (control == SERVICE_CONTROL_POWEREVENT && type == PBT_POWERSETTINGCHANGE && data != nullptr) {
        const auto& change = *static_cast<const platform::PowerSettingChange*>(data);
        Tell("display " + std::to_string(change.data) + "; ");
    }
    return NO_ERROR;
}

// As the product's: the display is registered for, and what ends the object unregisters by the status handle.
void Main(std::uint32_t, wchar_t**) {
    statusHandle = platform::register_service_handler(kOwnService, Handle, nullptr);
    Report(SERVICE_RUNNING);
    if (hangs) {
        ::Sleep(INFINITE);
    }
    const bool registered = platform::register_power_setting(statusHandle, GUID_CONSOLE_DISPLAY_STATE) != 0;
    ::Sleep(3000);  // the present state comes on the dispatcher's thread
    Tell(registered ? "registered; " : "not registered; ");
    ::SetLastError(NO_ERROR);
    const bool unregistered = platform::unregister_power_setting(statusHandle);
    const DWORD error = ::GetLastError();
    Tell(std::string("unregistered: ") + (unregistered ? "true" : "false") + ", " + ErrorText(error) + ".");
    ::WaitForSingleObject(stopped, INFINITE);
}

int RunOwnService(const std::vector<std::string>& arguments) {
    hangs = !arguments.empty() && arguments[0] == "hang";
    stopped = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return platform::run_service(kOwnService, Main) ? 0 : 1;
}

const Part kPart("own-service", RunOwnService);

// Makes the service and starts it; it goes with the object.
class OwnServiceRun {
public:
    OwnServiceRun(Findings& findings, const std::string& mode) {
        RemoveOwnService();
        const OwnedService manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
        service.reset(::CreateServiceW(manager.get(), kOwnService, kOwnService, SERVICE_ALL_ACCESS,
                                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE,
                                       platform::to_wide(PartCommand("own-service", {mode})).c_str(), nullptr, nullptr,
                                       nullptr, nullptr, nullptr));
        if (service == nullptr) {
            findings.Fail("a service of the kit can be made: " + ErrorText(::GetLastError()));
        }
        if (::StartServiceW(service.get(), 0, nullptr) == FALSE || !WaitForState(service.get(), SERVICE_RUNNING, 30)) {
            const DWORD error = ::GetLastError();
            RemoveOwnService();
            findings.Fail("the kit's service runs: " + ErrorText(error));
        }
        const auto status = StatusOf(service.get());
        process.reset(
            ::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, status ? status->dwProcessId : 0));
    }
    ~OwnServiceRun() {
        service.reset();
        RemoveOwnService();
    }
    OwnServiceRun(const OwnServiceRun&) = delete;
    OwnServiceRun& operator=(const OwnServiceRun&) = delete;

    bool Stop() {
        SERVICE_STATUS status = {};
        return ::ControlService(service.get(), SERVICE_CONTROL_STOP, &status) != FALSE ||
               ::GetLastError() == ERROR_SERVICE_NOT_ACTIVE;
    }

    OwnedService service;
    platform::OwnedHandle process;
};

}  // namespace

// Also the process of one that does not stop.
void RemoveOwnService() {
    EnableRight(L"SeDebugPrivilege");
    if (const OwnedService service = OpenTheService(kOwnService, SERVICE_ALL_ACCESS)) {
        SERVICE_STATUS answer = {};
        const auto status = StatusOf(service.get());
        ::ControlService(service.get(), SERVICE_CONTROL_STOP, &answer);
        if (status && status->dwProcessId != 0) {
            const platform::OwnedHandle process(
                ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status->dwProcessId));
            if (process != nullptr && ::WaitForSingleObject(process.get(), 2000) == WAIT_TIMEOUT) {
                ::TerminateProcess(process.get(), 1);
                ::WaitForSingleObject(process.get(), 10000);
            }
        }
        ::DeleteService(service.get());
    }
    Forget(kTold);
}

void EndsAHungMain(Findings& findings) {
    EnableRight(L"SeDebugPrivilege");
    OwnServiceRun run(findings, "hang");
    const ULONGLONG start = ::GetTickCount64();
    findings.ExpectText(
        StatesAfter(findings, kOwnService, SERVICE_STOPPED, [&] { findings.Expect(run.Stop(), "a stop is answered"); }),
        "STOPPED", "what the service manager tells of it");
    findings.Expect(::WaitForSingleObject(run.process.get(), 60000) == WAIT_OBJECT_0,
                    "the process ends, although its ServiceMain does not");
    DWORD code = STILL_ACTIVE;
    ::GetExitCodeProcess(run.process.get(), &code);
    findings.ExpectNumber(code, 0, "its exit code");
    findings.Saw("it ended " + std::to_string((::GetTickCount64() - start) / 1000) + " s after the stop");
}

void SurvivesUnregistration(Findings& findings) {
    EnableRight(L"SeDebugPrivilege");
    OwnServiceRun run(findings, "power");
    std::string told;
    for (int tenth = 0; tenth < 300 && !told.ends_with("."); ++tenth) {
        ::Sleep(100);
        told = Kept(kTold);
    }
    findings.Saw("the kit's service: " + told);
    findings.Expect(told.find("unregistered: ") != std::string::npos, "the call with the status handle returns");
    findings.Expect(::WaitForSingleObject(run.process.get(), 1000) == WAIT_TIMEOUT, "the process lives on");
    findings.Expect(run.Stop() && WaitForState(run.service.get(), SERVICE_STOPPED, 20), "the service still stops");
    if (told.find("display ") == std::string::npos && IsWine()) {
        findings.Impossible("Wine takes registrations for power settings and tells of nothing");
    }
    findings.Expect(told.starts_with("display "), "the display's present state came with the registration");
}

}  // namespace zorvalis::acceptance
