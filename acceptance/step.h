// One thing that the kit tries, and what a try has found. A step runs in a process of its own, which is ended with all
// that it started when its time is over; the others go on.
#pragma once

#include <string>
#include <vector>

namespace zorvalis::acceptance {

enum class Verdict { held, failed, impossible };

// What a step saw. Texts are UTF-8.
class Findings {
public:
    // With `tells` each line is also printed at once, so that it is not lost with a process that is ended.
    explicit Findings(bool tells = false) : tells_(tells) {}

    // A fact for the report, "the service ended with 0".
    void Saw(const std::string& fact);

    // Notes what was to hold; when it does not, the step has failed, and goes on. Returns `held`.
    bool Expect(bool held, const std::string& what);

    // The same for a value, which the report shows when it is another one.
    bool ExpectNumber(long long value, long long wanted, const std::string& what);
    bool ExpectText(const std::string& value, const std::string& wanted, const std::string& what);

    // Ends the step: it cannot be tried on this machine, or nothing after this point makes sense.
    [[noreturn]] void Impossible(const std::string& why);
    [[noreturn]] void Fail(const std::string& why);

    Verdict verdict() const { return verdict_; }
    const std::vector<std::string>& lines() const { return lines_; }
    bool checked() const { return checked_; }  // whether anything was expected

private:
    const bool tells_;
    Verdict verdict_ = Verdict::held;
    bool checked_ = false;
    std::vector<std::string> lines_;
};

struct Step {
    const char* number;  // "5.3": docs/windows.md points to it
    const char* what;    // what holds, as a sentence without a full stop
    void (*run)(Findings&);
    int limit = 60;               // seconds
    void (*restore)() = nullptr;  // undoes what a step that was ended may have left; may run when nothing is left
    bool needsInstalled = true;   // not tried where the service is not registered
    bool byHand = false;          // needs somebody at the machine: it runs only when it is chosen
};

// Runs a step to its end in this process. A step that throws has failed, and so has one that checked nothing.
Findings FindingsOf(void (*run)(Findings&), bool tells);

// All steps in the order in which they run.
const std::vector<Step>& AllSteps();

// The groups in the order in which they run, which is not that of their numbers: a service that died comes back after a
// minute, and makes its task and hears of hardware two minutes after its start. Other steps run meanwhile, and each
// wait is waited for once.
std::vector<Step> PackageSteps();    // 1: install, repair, upgrade
std::vector<Step> ServiceSteps();    // 2: the service manager; the last one ends the service's process
std::vector<Step> MachineSteps();    // 7: files, registry, time; none needs the running service
std::vector<Step> RecoverySteps();   // 2: the service is there again
std::vector<Step> EventSteps();      // 4: event log, trace, WMI; the last one leaves a service of more than two minutes
std::vector<Step> LoadSteps();       // 2: what that service bears
std::vector<Step> TaskSteps();       // 3: the task scheduler, with that service; the last one starts another
std::vector<Step> EndpointSteps();   // 5: RPC
std::vector<Step> NetworkSteps();    // 6: TLS and proxy
std::vector<Step> InstalledSteps();  // 7: processes, access lists and tools of what is installed
std::vector<Step> RemovalSteps();    // 8: removal and purge
std::vector<Step> ByHandSteps();     // 9: what somebody does at the machine

}  // namespace zorvalis::acceptance
