// Group 2: the product's service in the hands of the service manager. Each step leaves it running.
#include <windows.h>

#include <psapi.h>

#include <cstdlib>
#include <tuple>
#include <utility>

#include "common/registry.h"
#include "common/version.h"
#include "kit.h"
#include "platform/text.h"
#include "platform/windows/wide.h"
#include "process.h"
#include "product_service.h"
#include "service/service_install.h"
#include "state_reports.h"
#include "steps_service.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kCounter[] = L"zorv-acceptance";

void RefusesToBeAProgram(Findings& findings) {
    const Ended ended = RunProgram(Quoted(ProgramFolder() + "\\ZorvalisWinService.exe"), 30);
    findings.Expect(ended.inTime && ended.code == 0, "it ends within half a minute, with 0");
    findings.Expect(ended.output.find("Service failed to run w/err 0x00000427") != std::string::npos,
                    "it says that nobody started it as a service (1063): " + ended.output.substr(0, 200));
}

void Starts(Findings& findings) {
    NeedRunnable(findings);
    StopProduct(findings);
    WriteRegString(kLocalMachine, kProductKey, L"SERVICEVERSION", L"before");
    const OwnedService service = OpenProduct(SERVICE_START | SERVICE_QUERY_STATUS);
    const std::string reports = StatesAfter(findings, kServiceName, SERVICE_RUNNING, [&] {
        findings.Expect(::StartServiceW(service.get(), 0, nullptr) != FALSE, "it can be started");
    });
    findings.Expect(reports.ends_with("RUNNING") && reports.find("STOP") == std::string::npos,
                    "RUNNING is the last state that the service manager tells of: " + reports);
    const auto status = StatusOf(service.get());
    findings.ExpectNumber(status ? status->dwControlsAccepted : 0, 0x1C1,
                          "controls taken: stop, power, session, pre-shutdown (0x1C1)");
    const platform::OwnedHandle process = ProductProcess(PROCESS_QUERY_LIMITED_INFORMATION);
    wchar_t path[MAX_PATH] = {};
    DWORD length = MAX_PATH;
    ::QueryFullProcessImageNameW(process.get(), 0, path, &length);
    findings.Expect(::_wcsicmp(path, platform::to_wide(ProgramFolder() + "\\ZorvalisWinService.exe").c_str()) == 0,
                    "the process is the installed executable: " + platform::to_utf8(path));
    findings.ExpectText(platform::to_utf8(ReadRegString(kLocalMachine, kProductKey, L"SERVICEVERSION")),
                        kServiceVersion, "the version that it has written into the registry");
}

void Stops(Findings& findings) {
    StartProduct(findings);
    const platform::OwnedHandle process = ProductProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION);
    const OwnedService service = OpenProduct(SERVICE_STOP | SERVICE_QUERY_STATUS);
    const std::string reports = StatesAfter(findings, kServiceName, SERVICE_STOPPED, [&] {
        SERVICE_STATUS answer = {};
        findings.Expect(::ControlService(service.get(), SERVICE_CONTROL_STOP, &answer) != FALSE,
                        "the stop is answered");
    });
    findings.Expect(reports.ends_with("STOPPED") && reports.find("RUNNING") == std::string::npos,
                    "STOPPED is the last state that the service manager tells of: " + reports);
    const auto status = StatusOf(service.get());
    findings.ExpectNumber(status ? status->dwWin32ExitCode : 1, 0, "the service's exit code");
    findings.Expect(::WaitForSingleObject(process.get(), 20000) == WAIT_OBJECT_0, "its process ends within 20 s");
    DWORD code = STILL_ACTIVE;
    ::GetExitCodeProcess(process.get(), &code);
    findings.ExpectNumber(code, 0, "the process's exit code");
    StartProduct(findings);
}

void TakesAndRefusesControls(Findings& findings) {
    StartProduct(findings);
    const OwnedService service = OpenProduct(SERVICE_ALL_ACCESS);
    for (const auto& [control, wanted, name] :
         {std::tuple{SERVICE_CONTROL_PAUSE, ERROR_INVALID_SERVICE_CONTROL, "pause"},
          {SERVICE_CONTROL_CONTINUE, ERROR_INVALID_SERVICE_CONTROL, "continue"},
          {SERVICE_CONTROL_PARAMCHANGE, ERROR_INVALID_SERVICE_CONTROL, "a change of parameters"},
          {SERVICE_CONTROL_INTERROGATE, ERROR_SUCCESS, "interrogate"},
          {200, ERROR_SUCCESS, "a control of somebody's own (200)"}}) {
        SERVICE_STATUS answer = {};
        const bool sent = ::ControlService(service.get(), static_cast<DWORD>(control), &answer) != FALSE;
        findings.ExpectNumber(sent ? ERROR_SUCCESS : ::GetLastError(), wanted, std::string("the answer to ") + name);
    }
    for (const auto& [control, name] :
         {std::pair{SERVICE_CONTROL_POWEREVENT, "a power event"}, {SERVICE_CONTROL_PRESHUTDOWN, "a pre-shutdown"}}) {
        SERVICE_STATUS answer = {};
        const bool sent = ::ControlService(service.get(), static_cast<DWORD>(control), &answer) != FALSE;
        const DWORD error = sent ? ERROR_SUCCESS : ::GetLastError();
        // Windows documents both for a control that only it may send.
        findings.Expect(error == ERROR_INVALID_PARAMETER || error == ERROR_INVALID_SERVICE_CONTROL,
                        std::string(name) + " from a program is refused: " + ErrorText(error));
    }
    findings.Expect(WaitForState(service.get(), SERVICE_RUNNING, 1), "it runs on after all of them");
}

std::string AskVersion() {
    return RunProgram(Quoted(ProgramFolder() + "\\zorvctl.exe") + " get version", 70).output;
}

// The endpoint listens a moment after the service runs.
bool Answers() {
    for (int second = 0; second < 20; ++second) {
        if (AskVersion().find(kServiceVersion) != std::string::npos) {
            return true;
        }
        ::Sleep(1000);
    }
    return false;
}

void OpensItsEndpointAgain(Findings& findings) {
    StartProduct(findings);
    findings.Expect(Answers(), "zorvctl gets the service's version");
    StopProduct(findings);
    findings.Expect(AskVersion().find(kServiceVersion) == std::string::npos, "a stopped service answers nobody");
    StartProduct(findings);
    findings.Expect(Answers(), "zorvctl gets it again after a restart");
}

// In the journal until it is settled: when the process was ended, in milliseconds since 1970, and its number.
constexpr char kDeath[] = "death of the service";

void ForgetDeath() {
    Forget(kDeath);
}

void DiesAndIsNoticed(Findings& findings) {
    StartProduct(findings);
    const OwnedService service = OpenProduct(SERVICE_QUERY_STATUS);
    const platform::OwnedHandle process =
        ProductProcess(PROCESS_TERMINATE | SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION);
    if (::TerminateProcess(process.get(), 1) == FALSE) {
        findings.Fail("the service's process can be ended: " + ErrorText(::GetLastError()));
    }
    Keep(kDeath, std::to_string(Milliseconds1970()) + ":" + std::to_string(::GetProcessId(process.get())));
    ::WaitForSingleObject(process.get(), 10000);
    findings.Expect(WaitForState(service.get(), SERVICE_STOPPED, 10), "the service manager notices the death");
}

// Alone it ends the process itself; in a run, steps that need no service stand between.
void IsRestarted(Findings& findings) {
    NeedRunnable(findings);
    if (Kept(kDeath).empty()) {
        DiesAndIsNoticed(findings);
    }
    const std::string death = Kept(kDeath);
    ForgetDeath();
    const OwnedService service = OpenProduct(SERVICE_QUERY_STATUS);
    if (!WaitForState(service.get(), SERVICE_RUNNING, 100)) {
        findings.Fail("the service runs again within 100 s");
    }
    const auto status = StatusOf(service.get());
    findings.Expect(status && std::to_string(status->dwProcessId) != death.substr(death.find(':') + 1),
                    "another process is the service");
    const std::int64_t seconds = (BeganAt(findings) - std::atoll(death.c_str())) / 1000;
    findings.Expect(seconds >= 45 && seconds <= 100,
                    "it began about a minute after the death: after " + std::to_string(seconds) + " s");
}

void TakeCounter() {
    DeleteRegValue(kLocalMachine, kProductKey, kCounter);
}

// Each write wakes the reload of settings and the receiver of hardware events, whose registry reads and writes leave
// handles open on purpose: up to eight by the receiver, and one by the reload for each write, the receiver's included.
void BearsTenThousandEvents(Findings& findings) {
    constexpr std::uint32_t kEvents = 10000;
    constexpr DWORD kMostHandles = 12 * kEvents;
    constexpr SIZE_T kMostBytes = 256U << 20;
    struct Counter {
        ~Counter() { TakeCounter(); }
    } const counter;
    WaitForLateStart(findings);
    const platform::OwnedHandle process = ProductProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ);
    const auto measure = [&](DWORD& handles, PROCESS_MEMORY_COUNTERS_EX& memory) {
        memory.cb = sizeof memory;
        return ::GetProcessHandleCount(process.get(), &handles) != FALSE &&
               ::K32GetProcessMemoryInfo(process.get(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                                         sizeof memory) != FALSE;
    };
    DWORD before = 0, after = 0;
    PROCESS_MEMORY_COUNTERS_EX small = {}, large = {};
    if (!measure(before, small)) {
        findings.Fail("the process tells of its handles: " + ErrorText(::GetLastError()));
    }
    const ULONGLONG start = ::GetTickCount64();
    for (std::uint32_t event = 1; event <= kEvents; ++event) {
        WriteRegDword(kLocalMachine, kProductKey, kCounter, event);
        while (::GetTickCount64() - start < event * 2) {  // two milliseconds each, so that most are seen one by one
            ::SwitchToThread();
        }
    }
    ::Sleep(3000);
    findings.Expect(measure(after, large), "the process lives on");
    findings.Expect(after <= before + kMostHandles,
                    "at most twelve handles more for each event: " + std::to_string(before) + " before, " +
                        std::to_string(after) + " after " + std::to_string(kEvents) + " events");
    findings.Expect(large.PrivateUsage <= small.PrivateUsage + kMostBytes,
                    "no more than 256 MiB of memory more: " + std::to_string(small.PrivateUsage >> 10) +
                        " KiB before, " + std::to_string(large.PrivateUsage >> 10) + " after");
    findings.Expect(Answers(), "zorvctl still gets the service's version");
}

}  // namespace

std::vector<Step> ServiceSteps() {
    return {
        {"2.1", "The executable started as a program refuses to be the service (1063)", RefusesToBeAProgram},
        {"2.2", "The service starts, and RUNNING is its last report", Starts, 150},
        {"2.3", "The service stops, and STOPPED is its last report", Stops, 180},
        {"2.4", "Pause and reserved controls are refused, others answered", TakesAndRefusesControls},
        {"2.5", "The endpoint opens again after a restart of the service", OpensItsEndpointAgain, 240},
        {"2.6", "The display's state, reported at the registration, becomes the record of a power-on", RecordsPowerOn,
         150},
        {"2.7", "A display that goes off and on is a power event of the service", HearsOfTheDisplay, 150},
        {"2.8", "A ServiceMain that hangs is ended ten seconds after the stop", EndsAHungMain, 120, RemoveOwnService,
         false},
        {"2.9", "A status handle given to UnregisterPowerSettingNotification does no harm", SurvivesUnregistration, 90,
         RemoveOwnService, false},
        {"2.12", "The service manager notices that the service died", DiesAndIsNoticed, 90, ForgetDeath},
    };
}

std::vector<Step> RecoverySteps() {
    return {{"2.10", "A service that died is started again after a minute", IsRestarted, 180, ForgetDeath}};
}

std::vector<Step> LoadSteps() {
    return {{"2.11", "Handles and memory bear ten thousand events of the registry", BearsTenThousandEvents, 270,
             TakeCounter}};
}

}  // namespace zorvalis::acceptance
