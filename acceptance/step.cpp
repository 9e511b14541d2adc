#include "step.h"

#include <cstdio>
#include <exception>

namespace zorvalis::acceptance {
namespace {

// Leaves a step early.
struct Ended {};

}  // namespace

void Findings::Saw(const std::string& fact) {
    // Output of programs and Windows' words for errors end with blanks.
    lines_.push_back(fact.substr(0, fact.find_last_not_of(" \r\n") + 1));
    if (tells_) {
        std::printf("%s\n", lines_.back().c_str());
        std::fflush(stdout);
    }
}

bool Findings::Expect(bool held, const std::string& what) {
    checked_ = true;
    Saw((held ? "held: " : "FAILED: ") + what);
    if (!held) {
        verdict_ = Verdict::failed;
    }
    return held;
}

bool Findings::ExpectNumber(long long value, long long wanted, const std::string& what) {
    return ExpectText(std::to_string(value), std::to_string(wanted), what);
}

bool Findings::ExpectText(const std::string& value, const std::string& wanted, const std::string& what) {
    return Expect(value == wanted, value == wanted ? what + " (" + value + ")"
                                                   : what + ": it is \"" + value + "\", not \"" + wanted + "\"");
}

void Findings::Impossible(const std::string& why) {
    Saw("not possible here: " + why);
    if (verdict_ == Verdict::held) {
        verdict_ = Verdict::impossible;
    }
    throw Ended();
}

void Findings::Fail(const std::string& why) {
    Expect(false, why);
    throw Ended();
}

Findings FindingsOf(void (*run)(Findings&), bool tells) {
    Findings findings(tells);
    try {
        run(findings);
        if (!findings.checked()) {
            findings.Expect(false, "the step checked nothing");
        }
    } catch (const Ended&) {
    } catch (const std::exception& exception) {
        findings.Expect(false, std::string("the step broke off: ") + exception.what());
    }
    return findings;
}

const std::vector<Step>& AllSteps() {
    static const std::vector<Step> steps = [] {
        std::vector<Step> all;
        for (auto* group : {PackageSteps, ServiceSteps, MachineSteps, RecoverySteps, EventSteps, LoadSteps, TaskSteps,
                            EndpointSteps, NetworkSteps, InstalledSteps, RemovalSteps, ByHandSteps}) {
            const std::vector<Step> its = group();
            all.insert(all.end(), its.begin(), its.end());
        }
        return all;
    }();
    return steps;
}

}  // namespace zorvalis::acceptance
