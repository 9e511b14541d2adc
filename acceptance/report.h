// What the kit writes when it has run: a text to read and the same as JSON.
#pragma once

#include <string>
#include <vector>

#include "step.h"

namespace zorvalis::acceptance {

struct Result {
    std::string number;
    std::string what;
    Verdict verdict = Verdict::failed;
    std::vector<std::string> lines;
    double seconds = 0;
};

std::string VerdictText(Verdict verdict);

// The machine's name is left out: a report is sent around. One that is written before all steps have run says so.
std::string ReportText(const std::vector<Result>& results, bool ended);
std::string ReportJson(const std::vector<Result>& results, bool ended);

// One result between the processes of the kit.
std::string ToJson(const Findings& findings);
bool FromJson(const std::string& text, Result& result);

}  // namespace zorvalis::acceptance
