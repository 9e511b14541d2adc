#include "report.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "base/json.h"
#include "common/version.h"
#include "machine.h"

namespace zorvalis::acceptance {
namespace {

constexpr std::array<Verdict, 3> kVerdicts = {Verdict::held, Verdict::failed, Verdict::impossible};

std::string Moment() {
    const std::time_t now = std::time(nullptr);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    return text;
}

int CountOf(const std::vector<Result>& results, Verdict verdict) {
    int count = 0;
    for (const Result& result : results) {
        count += result.verdict == verdict ? 1 : 0;
    }
    return count;
}

double SecondsOf(const std::vector<Result>& results) {
    double seconds = 0;
    for (const Result& result : results) {
        seconds += result.seconds;
    }
    return seconds;
}

}  // namespace

std::string VerdictText(Verdict verdict) {
    switch (verdict) {
        case Verdict::held:
            return "held";
        case Verdict::failed:
            return "FAILED";
        default:
            return "not possible here";
    }
}

std::string ReportText(const std::vector<Result>& results, bool ended) {
    std::string text = std::string("Zorvalis ") + kServiceVersion + ", " + Moment() + ", after " +
                       std::to_string(static_cast<int>(SecondsOf(results))) + " s\n";
    if (!ended) {
        text += "THE RUN HAS NOT ENDED: steps are missing.\n";
    }
    for (const Verdict verdict : kVerdicts) {
        text += VerdictText(verdict) + ": " + std::to_string(CountOf(results, verdict)) + "\n";
    }
    for (const auto& [name, value] : MachineFacts()) {
        text += name + ": " + value + "\n";
    }
    for (const Result& result : results) {
        if (result.verdict == Verdict::failed) {
            text += "    " + result.number + " " + result.what + "\n";
        }
    }
    for (const Result& result : results) {
        char took[32] = {};
        std::snprintf(took, sizeof took, "%.1f s", result.seconds);
        text += "\n" + result.number + " " + result.what + ": " + VerdictText(result.verdict) + " (" + took + ")\n";
        for (const std::string& line : result.lines) {
            text += "    " + line + "\n";
        }
    }
    return text;
}

std::string ReportJson(const std::vector<Result>& results, bool ended) {
    Json report = {{"version", kServiceVersion}, {"time", Moment()}, {"seconds", SecondsOf(results)}, {"ended", ended}};
    for (const auto& [name, value] : MachineFacts()) {
        report["machine"][name] = value;
    }
    for (const Verdict verdict : kVerdicts) {
        report["count"][VerdictText(verdict)] = CountOf(results, verdict);
    }
    report["steps"] = Json::array();
    for (const Result& result : results) {
        report["steps"].push_back({{"number", result.number},
                                   {"what", result.what},
                                   {"verdict", VerdictText(result.verdict)},
                                   {"seconds", result.seconds},
                                   {"saw", result.lines}});
    }
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string ToJson(const Findings& findings) {
    const Json json = {{"verdict", static_cast<int>(findings.verdict())}, {"saw", findings.lines()}};
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool FromJson(const std::string& text, Result& result) {
    try {
        const Json json = Json::parse(text);
        result.lines = json.at("saw").get<std::vector<std::string>>();
        result.verdict = kVerdicts.at(json.at("verdict").get<std::size_t>());
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace zorvalis::acceptance
