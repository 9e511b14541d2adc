// The process: how it is protected, its pool of threads, and what a pass costs.
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "kit.h"
#include "platform/thread_pool.h"
#include "platform/windows/handles.h"
#include "process.h"
#include "product_service.h"
#include "running_program.h"
#include "steps_machine.h"

namespace zorvalis::acceptance {
namespace {

using platform::OwnedHandle;

template <class Policy>
bool Ask(HANDLE process, PROCESS_MITIGATION_POLICY which, Policy& policy) {
    policy = {};
    return ::GetProcessMitigationPolicy(process, which, &policy, sizeof policy) != FALSE;
}

void LookAt(Findings& findings, HANDLE process, const std::string& name) {
    PROCESS_MITIGATION_ASLR_POLICY layout;
    PROCESS_MITIGATION_DEP_POLICY data;
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY trust;
    PROCESS_MITIGATION_CONTROL_FLOW_GUARD_POLICY flow;
    if (!Ask(process, ProcessASLRPolicy, layout)) {
        findings.Impossible("Windows does not tell how a process is protected: " + ErrorText(::GetLastError()));
    }
    if (IsWine() && layout.Flags == 0) {
        findings.Impossible("Windows tells nothing about addresses");
    }
    findings.Expect(layout.EnableBottomUpRandomization == 1 && layout.EnableHighEntropy == 1,
                    name + ": addresses are random, in 64 bits");
    if (Ask(process, ProcessDEPPolicy, data)) {
        findings.Expect(data.Enable == 1 && data.Permanent, name + ": data is not executed, for good");
    } else {
        findings.Saw(name + ": always on for 64 bits, and not told: " + ErrorText(::GetLastError()));
    }
    findings.Saw(
        name + ": control flow guard " +
        (Ask(process, ProcessControlFlowGuardPolicy, flow) ? std::to_string(flow.EnableControlFlowGuard) : "?"));
    // Windows before 11 may not know it; step 7.5 looks at what it does.
    findings.Saw(name + ": redirection trust " +
                 (Ask(process, ProcessRedirectionTrustPolicy, trust) ? std::to_string(trust.EnforceRedirectionTrust)
                                                                     : "not known: " + ErrorText(::GetLastError())));
}

// Ends the step where the service cannot run.
OwnedHandle RunningService(Findings& findings) {
    StartProduct(findings);
    OwnedHandle process = ProductProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ);
    if (process == nullptr) {
        findings.Fail("the service's process cannot be looked at: " + ErrorText(::GetLastError()));
    }
    return process;
}

void Protection(Findings& findings) {
    LookAt(findings, ::GetCurrentProcess(), "the kit");
    const OwnedHandle service = RunningService(findings);
    LookAt(findings, service.get(), "the service");
}

struct Pool {
    OwnedHandle released{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::atomic<int> begun = 0;
    std::atomic<int> ended = 0;
    std::atomic<bool> timer = false;
};

// Waits until the counter has that value, at most so long.
bool Reaches(const std::atomic<int>& counter, int value, int seconds) {
    const ULONGLONG limit = ::GetTickCount64() + seconds * 1000ULL;
    while (counter < value && ::GetTickCount64() < limit) {
        ::Sleep(10);
    }
    return counter >= value;
}

void BusyPool(Findings& findings) {
    static Pool pool;  // callbacks may outlive the step
    const auto wait = [](void*) {
        ++pool.begun;
        ::WaitForSingleObject(pool.released.get(), 90000);
        ++pool.ended;
    };
    const auto submit = [&](int count) {
        for (int i = 0; i < count; ++i) {
            platform::PoolWork* const work = platform::create_pool_work(wait, nullptr);
            if (work == nullptr) {
                findings.Fail("work for the pool cannot be made: " + ErrorText(::GetLastError()));
            }
            platform::submit_pool_work(work);
        }
    };
    constexpr int kFew = 50;
    constexpr int kMany = 700;
    submit(kFew);
    findings.Expect(Reaches(pool.begun, kFew, 40), "the pool grows: calls that do not return run beside each other");
    platform::PoolTimer* const timer = platform::create_pool_timer([](void*) { pool.timer = true; }, nullptr);
    platform::start_pool_timer(timer, 10);
    for (int i = 0; i < 1000 && !pool.timer; ++i) {
        ::Sleep(10);
    }
    findings.Expect(pool.timer, "a timer fires beside them");
    submit(kMany - kFew);
    Reaches(pool.begun, kMany, 5);
    findings.Saw(std::to_string(pool.begun) + " of " + std::to_string(kMany) + " calls run at once after 5 s");
    ::SetEvent(pool.released.get());
    findings.Expect(Reaches(pool.ended, kMany, 40), "what had to wait for a thread runs once others return");
    findings.ExpectNumber(pool.begun, kMany, "each ran once");
}

void Passes(Findings& findings) {
    const std::string command = Quoted(ProgramFolder() + "\\ZorvalisWinService.exe") + " -j0";
    constexpr int kPasses = 50;
    std::vector<ULONGLONG> times;
    const ULONGLONG start = ::GetTickCount64();
    bool good = true;
    while (times.size() < kPasses && (times.size() < 3 || ::GetTickCount64() - start < 10000)) {
        const ULONGLONG begin = ::GetTickCount64();
        const Ended pass = RunProgram(command, 60);
        times.push_back(::GetTickCount64() - begin);
        if (!pass.started || !pass.inTime || pass.code != 0) {
            good = false;
            findings.Saw("a pass ended with " + std::to_string(pass.code) + (pass.inTime ? "" : ", not in time"));
            break;
        }
    }
    findings.Expect(good, std::to_string(times.size()) + " passes one after the other end with 0");
    std::sort(times.begin(), times.end());
    findings.Saw("a pass takes " + std::to_string(times[times.size() / 2]) + " ms in the middle, " +
                 std::to_string(times.front()) + " to " + std::to_string(times.back()));
}

void Growth(Findings& findings) {
    const OwnedHandle service = RunningService(findings);
    DWORD handles = 0;
    PROCESS_MEMORY_COUNTERS memory = {};
    ::GetProcessMemoryInfo(service.get(), &memory, sizeof memory);
    findings.Expect(::GetProcessHandleCount(service.get(), &handles) != FALSE && handles < 100000,
                    "the service has " + std::to_string(handles) + " handles open");
    findings.Expect(memory.PeakWorkingSetSize < (200u << 20),
                    "it has used at most " + std::to_string(memory.PeakWorkingSetSize >> 10) + " KB of memory at once");
}

}  // namespace

std::vector<Step> ProcessSteps() {
    return {
        {"7.23", "The process is protected as its headers ask", Protection, 60},
        {"7.24", "The pool of threads goes on when all its threads are busy", BusyPool, 120, nullptr, false},
        {"7.25", "Passes one after the other end well, and the report has what one costs", Passes, 200},
        {"7.26", "The running service keeps to its size", Growth, 60},
    };
}

}  // namespace zorvalis::acceptance
