// Group 9: what no program can do to a machine. Each step runs only when it is chosen, with the product installed by
// group 1; its sentence says what somebody is to do meanwhile, or before.
#include <windows.h>

#include <cstdlib>

#include "collection/triggers.h"
#include "kit.h"
#include "package.h"
#include "process.h"
#include "product_service.h"

namespace zorvalis::acceptance {
namespace {

constexpr int kSeconds = 120;

// When Windows began, in seconds since 1601, which differs by seconds between two looks at the same start.
long long StartOfWindows() {
    FILETIME now = {};
    ::GetSystemTimeAsFileTime(&now);
    return static_cast<long long>((std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime) / 10000000 -
                                  ::GetTickCount64() / 1000);
}

// The first try notes what is recorded, the second one, after a restart, what has come.
void RecordsARestart(Findings& findings) {
    const std::string kept = Kept(kBeforeRestart);
    const long long begun = StartOfWindows();
    if (kept.empty() || std::llabs(begun - std::atoll(kept.c_str())) < 60) {
        StartProduct(findings);
        Keep(kBeforeRestart, std::to_string(begun) + ":" + Behavior(findings));
        findings.Impossible("restart Windows now (not: shut down), and run this step again");
    }
    Forget(kBeforeRestart);
    const OwnedService service = OpenProduct(SERVICE_QUERY_STATUS);
    findings.Expect(WaitForState(service.get(), SERVICE_RUNNING, 60), "the service has started with Windows");
    const std::string before = kept.substr(kept.find(':') + 1);
    std::string after;
    for (int second = 0; second < 20 && after.size() < before.size() + 6; second += 2) {
        after = Behavior(findings);
        ::Sleep(2000);
    }
    findings.ExpectText(
        after, before + " " + std::to_string(JOB_TRIGGER_POWER_OFF) + " " + std::to_string(JOB_TRIGGER_POWER_ON),
        "what is recorded (11 is a power-off, at the pre-shutdown; 10 a power-on)");
}

// A row with the trigger comes while the step waits.
void ExpectRow(Findings& findings, JobTrigger trigger) {
    StartProduct(findings);
    // A pass lets the service record lid and mains again.
    RunProgram(Quoted(ProgramFolder() + "\\ZorvalisWinService.exe") + " -j0", 60);
    const std::string before = Behavior(findings), wanted = " " + std::to_string(trigger);
    std::string after;
    for (int second = 0; second < kSeconds && after.find(wanted) == std::string::npos; second += 2) {
        ::Sleep(2000);
        after = Behavior(findings).substr(before.size());
    }
    findings.Expect(after.find(wanted) != std::string::npos, "a row" + wanted + " came, of these:" + after);
}

}  // namespace

std::vector<Step> ByHandSteps() {
    constexpr int kLimit = kSeconds + 60;
    std::vector<Step> steps = {
        {"9.1", "A restart of Windows is recorded (run it, restart, run it again)", RecordsARestart, 120,
         [] { Forget(kBeforeRestart); }},
        {"9.2", "Pull the power plug now: it is recorded",
         [](Findings& findings) { ExpectRow(findings, JOB_TRIGGER_AC_OUT); }, kLimit},
        {"9.3", "Put the power plug in again now: it is recorded",
         [](Findings& findings) { ExpectRow(findings, JOB_TRIGGER_AC_IN); }, kLimit},
        {"9.4", "Close the lid and open it again now: it is recorded",
         [](Findings& findings) { ExpectRow(findings, JOB_TRIGGER_LID_CLOSE); }, kLimit},
        {"9.5", "Let the machine sleep now, and wake it: it is recorded",
         [](Findings& findings) { ExpectRow(findings, JOB_TRIGGER_SUSPEND); }, kLimit},
    };
    for (Step& step : steps) {
        step.byHand = true;
    }
    return steps;
}

}  // namespace zorvalis::acceptance
