// `zorvctl settings check`: what a setting file would do, before a server publishes it.
#include "settings_check.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>

#include "base/number.h"
#include "base/text.h"
#include "commands.h"
#include "common/version.h"
#include "host.h"
#include "jobs/rules.h"
#include "output.h"
#include "settings/period_codes.h"
#include "upload/http_client.h"

namespace zorvalis {

namespace {

constexpr int kVerdictWidth = 6, kShownValue = 15;  // columns of the table

// What says on purpose that a key is off. Any other text that is no word of the service switches it off as well, but
// is more likely a mistake.
bool SaysOff(const std::string& text) {
    return text.empty() || text == "0" || text == "off";
}

std::string PeriodCodeList() {
    std::string list;
    for (const PeriodCode& one : kPeriodCodes) {
        const bool ofSettings = one.code.size() > 1 && one.code[1] >= '0' && one.code[1] <= '9';
        list += ofSettings ? (list.empty() ? "" : " ") + std::string(one.code) : "";
    }
    return list;
}

class Check {
public:
    explicit Check(const std::string& document) : document_(document) {}

    SettingsVerdict Run() && {
        if (Parse() && Known()) {
            Twice();
            verdict_.year = YearBySettings(tree_);
            if (verdict_.year[0].year == 0) {
                Say(Verdict::harm, "", "no machine collects anything by these settings");
            }
        }
        return std::move(verdict_);
    }

private:
    void Say(Verdict verdict, const std::string& key, const std::string& words) {
        const auto value = tree_.find(key);
        const std::string shown = value == tree_.end() ? ""
                                  : value->is_string() ? value->get<std::string>()
                                                       : DumpJson(*value);
        verdict_.keys.push_back({verdict, ReadableText(key), ReadableText(shown), words});
    }

    bool Parse() {
        try {
            tree_ = ParseJson(document_);
        } catch (const std::exception& error) {
            // The library quotes what it read last, which may be anything.
            Say(Verdict::harm, "",
                "it is no JSON, and every pass would ask for it anew: " + ReadableText(error.what()));
            return false;
        }
        if (!tree_.is_object()) {
            Say(Verdict::harm, "", "it is no object of keys, and would be refused");
        }
        return tree_.is_object();
    }

    // The text of a key that the service reads; says what its absence, and a value of another type, does.
    std::optional<std::string> Text(
        const std::string& key, Verdict ifAbsent, const char* absent,
        const char* noText = "no text: every pass ends on it, the download of a better document too") {
        try {
            std::string text;
            if (FindSettingText(tree_, key, text)) {
                return text;
            }
            Say(ifAbsent, key, std::string("absent: ") + absent);
        } catch (const std::domain_error&) {
            Say(Verdict::harm, key, noText);
            broken_ = true;
        }
        return std::nullopt;
    }

    // Walks the keys that the service knows. False when no machine could go by them.
    bool Known() {
        Version();
        for (const TimerName& name : kTimerNames) {
            Period(name.setting);
        }
        const auto pause = Number(kPauseSetting, "days of pause after a day of collecting", [](std::int32_t days) {
            return static_cast<double>(DojobDayAt(days, 1, 1).pause) / (24 * 3600);
        });
        const auto months = Number(kMonthsSetting, "months of 30 days, then collecting ends", [](std::int32_t count) {
            const CollectPeriod period = PeriodAt(0, count, 0), none = PeriodAt(0, 0, 0);
            return static_cast<double>(period.until - none.until) / (30.0 * 24 * 3600);
        });
        for (std::size_t key = kTimedKinds; key < kJobWords; ++key) {
            Switch(NarrowBytes(kJobWord[key]));
        }
        for (const auto& [key, value] : tree_.items()) {
            if (!known_.contains(key)) {
                Say(Verdict::look, key, "no key of the service, which ignores it");
            }
        }
        return pause && months && !broken_;
    }

    void Version() {
        known_.insert(kVersionSetting);
        const auto version = tree_.find(kVersionSetting);
        const bool own = version == tree_.end() || *version == kServiceVersion;
        Say(own ? Verdict::good : Verdict::look, kVersionSetting,
            std::string("the answer's service_version takes its place, and has to be ") + kServiceVersion);
    }

    void Period(const std::string& key) {
        known_.insert(key);
        const bool download = key == kTimerNames.back().setting;
        const auto code = download ? Text(key, Verdict::harm, "the document would be refused",
                                          "no text: the document would be refused, and asked for anew by every pass")
                                   : Text(key, Verdict::look, "no pass does it");
        const std::int32_t period = PeriodSeconds(code.value_or(""));
        if (!code) {
            return;
        }
        if (period != 0) {
            return Say(Verdict::good, key, "every " + SpanText(period));
        }
        const bool meant = !download && SaysOff(*code);
        Say(meant ? Verdict::good : Verdict::harm, key,
            meant      ? "never"
            : download ? "no period code, so the document would be refused; there are " + PeriodCodeList()
                       : "no period code, so it is never done; there are " + PeriodCodeList() + ", and off");
    }

    // `effect` is what the service's rule makes of the number, in the same unit.
    template <class Effect>
    bool Number(const std::string& key, const std::string& unit, Effect effect) {
        known_.insert(key);
        const auto text = Text(key, Verdict::harm, "no machine collects anything",
                               "no text: no machine collects anything until it has a better document");
        if (!text) {
            return false;
        }
        try {
            const std::int32_t number = ParseInt32(*text);
            const std::string shown = std::to_string(number);
            const bool wraps = effect(number) != number;
            const std::string words = shown + " " + unit;
            Say(wraps || number < 0 ? Verdict::harm
                : shown == *text    ? Verdict::good
                                    : Verdict::look,
                key,
                number < 0       ? "a number below 0 has no meaning here"
                : wraps          ? "too large: the service's product wraps around"
                : shown == *text ? words
                                 : "what follows the number is ignored: " + words);
            return true;
        } catch (const std::logic_error&) {
            Say(Verdict::harm, key, "no number that the service can read: no machine collects anything");
            return false;
        }
    }

    void Switch(const std::string& key) {
        known_.insert(key);
        const auto word = Text(key, Verdict::look, "a service that starts with it records none of these events");
        if (word) {
            const bool on = *word == key, meant = on || SaysOff(*word);
            Say(meant ? Verdict::good : Verdict::harm, key,
                on      ? "recorded"
                : meant ? "not recorded"
                        : "not recorded, since only the key's own word switches it on; off is said with off");
        }
    }

    // A key that stands twice: the parser takes the last.
    void Twice() {
        std::set<std::string> seen;
        try {
            const Json again = Json::parse(document_, [&](int depth, Json::parse_event_t event, Json& key) {
                if (event == Json::parse_event_t::key && depth == 1 && !seen.insert(key.get<std::string>()).second) {
                    Say(Verdict::look, key.get<std::string>(), "stands twice, and the last one counts");
                }
                return true;
            });
        } catch (const std::invalid_argument&) {  // of a huge number, under a key that the service ignores
        }
    }

    const std::string& document_;
    Json tree_;
    bool broken_ = false;
    std::set<std::string> known_;
    SettingsVerdict verdict_;
};

std::string Amount(double number) {
    char text[40];
    std::snprintf(text, sizeof text, number == std::floor(number) ? "%.0f" : "%.2f", number);
    return text;
}

Json AsJson(const SettingsVerdict& verdict, const std::string& path) {
    Json keys = Json::array(), year = Json::array();
    for (const KeyVerdict& each : verdict.keys) {
        keys.push_back(
            {{"key", each.key}, {"value", each.value}, {"verdict", WordOf(each.verdict)}, {"words", each.words}});
    }
    for (const YearRow& row : verdict.year) {
        year.push_back({{"what", row.what}, {"month", row.month}, {"year", row.year}});
    }
    return {{"file", ReadableText(path, false)},
            {"verdict", WordOf(verdict.Worst())},
            {"keys", keys},
            {"calendar", year},
            {"assumptions", YearAssumptions()}};
}

void PrintVerdict(const SettingsVerdict& verdict, const std::string& path) {
    std::string text;
    const int width = TerminalWidth();
    for (const KeyVerdict& each : verdict.keys) {
        const std::string key = each.key.empty() ? "" : FitTo(each.key, 18) + FitTo(each.value, kShownValue) + " ";
        const int indent = kVerdictWidth + DisplayWidth(key);
        text += FitTo(WordOf(each.verdict), kVerdictWidth) + key + Wrapped(each.words, indent, width) + "\n";
    }
    if (!verdict.year.empty()) {
        text += "\nA year on one machine" + std::string(15, ' ') + "busiest month        year\n";
    }
    for (const YearRow& row : verdict.year) {
        text +=
            "  " + FitTo(row.what, 32) + FitTo(Amount(row.month), 15, true) + FitTo(Amount(row.year), 12, true) + "\n";
    }
    if (!verdict.year.empty()) {
        text += "\nTaken for granted:\n";
        for (const std::string& assumption : YearAssumptions()) {
            text += "  - " + Wrapped(assumption, 4, width) + "\n";
        }
    }
    const Verdict worst = verdict.Worst();
    text += "\n" + ReadableText(path) +
            (worst == Verdict::harm   ? " would do harm.\n"
             : worst == Verdict::look ? " does no harm, but look at it.\n"
                                      : " is good.\n");
    Print(text);
}

void CheckFile(const std::string& path, bool asJson) {
    std::string document;
    try {
        document = ReadWholeFile(path, kMostAnswer + std::size_t{1});
    } catch (const Failure& failure) {
        throw Failure{failure.text, kWrongUsage};
    }
    SettingsVerdict verdict;
    if (document.size() > kMostAnswer) {
        verdict.keys.push_back({Verdict::harm, "", "", "longer than an answer that the service takes, 16 MiB"});
    } else {
        verdict = CheckSettings(document);
    }
    if (asJson) {
        Print(DumpJson(AsJson(verdict, path)) + "\n");
    } else {
        PrintVerdict(verdict, path);
    }
    Require(verdict.Worst() != Verdict::harm, "");
}

}  // namespace

Verdict SettingsVerdict::Worst() const {
    Verdict worst = Verdict::good;
    for (const KeyVerdict& each : keys) {
        worst = std::max(worst, each.verdict);
    }
    return worst;
}

SettingsVerdict CheckSettings(const std::string& document) {
    return Check(document).Run();
}

const char* WordOf(Verdict verdict) {
    return verdict == Verdict::good ? "good" : verdict == Verdict::look ? "look" : "HARM";
}

void AddSettingsCheck(CLI::App& app) {
    const auto path = std::make_shared<std::string>();
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* check = app.get_subcommand("settings")
                          ->add_subcommand("check", "Says what a setting file would do, before a server publishes it");
    check->add_option("FILE", *path, "The document")->required();
    check->add_flag("--json", *asJson, "As JSON");
    check->footer("Exit code: 0 when it is good, 1 when it would do harm, 2 when it cannot be read.");
    check->callback([path, asJson] { CheckFile(*path, *asJson); });
}

}  // namespace zorvalis
