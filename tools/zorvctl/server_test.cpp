// `zorvctl server test`: meets the server as a pass does when it asks for settings, and says how far it came. It writes
// nothing: the answer is judged and thrown away.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <vector>

#include "collection/zorv_win_io_dll.h"
#include "commands.h"
#include "common/deployment.h"
#include "common/registry.h"
#include "common/version.h"
#include "host.h"
#include "network_words.h"
#include "output.h"
#include "settings/setting_file_manager.h"
#include "settings_check.h"
#include "upload/answer.h"
#include "upload/http_client.h"

namespace zorvalis {

namespace {

// The steps in their order. A step behind a broken one was not come to.
enum Step { kNetwork, kName, kConnection, kCertificate, kQuery, kSteps };
constexpr const char* kStepNames[kSteps] = {"network", "name", "connection", "certificate", "query"};

enum class Result { held, broken, open };

struct StepResult {
    Result result = Result::open;
    std::string words;
};

struct Trial {
    std::string server;
    bool builtIn = false;
    StepResult steps[kSteps];

    bool Holds() const {
        return std::none_of(std::begin(steps), std::end(steps),
                            [](const StepResult& step) { return step.result != Result::held; });
    }
};

// The host of an argument: a bare name, or the address that a person copies. The service takes a name alone.
std::string HostOf(std::string text) {
    const std::string given = text;
    for (const char* scheme : {"https://", "HTTPS://"}) {
        text = text.starts_with(scheme) ? text.substr(std::string_view(scheme).size()) : text;
    }
    Require(text.find("://") == std::string::npos,
            "the service speaks HTTPS alone: leave out the scheme of " + ReadableText(given), kWrongUsage);
    text = text.substr(0, text.find('/'));
    text = text.ends_with(":443") ? text.substr(0, text.size() - 4) : text;
    const bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_';
    });
    Require(plain,
            "say the server's host name, such as fs.example.com (the port is always 443), not " + ReadableText(given),
            kWrongUsage);
    return text;
}

// The step that a number of a failed `send` is about; everything before it held.
Step StepOf(std::uint32_t error) {
    constexpr std::uint32_t kAboutName[] = {12005, 12007};
    constexpr std::uint32_t kAboutConnection[] = {12002, 12029, 12180};
    const auto isIn = [error](const auto& list) {
        return std::find(std::begin(list), std::end(list), error) != std::end(list);
    };
    return isIn(kAboutName) ? kName : isIn(kAboutConnection) ? kConnection : kCertificate;
}

// What a pass makes of the answer.
StepResult Judge(const std::string& body) {
    const auto broken = [](const std::string& words) { return StepResult{Result::broken, words}; };
    const auto held = [](const std::string& words) { return StepResult{Result::held, words}; };
    try {
        const Json answer = ParseAnswer(body);
        const auto status = answer.find("status");
        if (answer == 0 || status == answer.end()) {
            return broken("what it answers is JSON, but no answer to this query: is it the right host?");
        }
        if (*status != "OK") {
            return held("the server has no settings for this model and version, so default.json rules");
        }
        const std::string version = AnswerText(answer, "service_version");
        const SettingsVerdict settings = CheckSettings(AnswerText(answer, "json_string"));
        if (settings.Worst() == Verdict::harm) {
            for (const KeyVerdict& each : settings.keys) {
                if (each.verdict == Verdict::harm) {
                    return broken(
                        "it answers with settings that would do harm: " + (each.key.empty() ? "" : each.key + ": ") +
                        each.words + "; see `zorvctl settings check`");
                }
            }
        }
        return version == kServiceVersion
                   ? held("it answers with settings for this version")
                   : held("it answers with settings for version " + ReadableText(version) + ", so default.json rules");
    } catch (const std::invalid_argument&) {
        return broken("what it answers is no JSON: is it the right host, or a proxy's page?");
    } catch (const std::exception&) {
        return broken("the answer lacks service_version or json_string, or one of them is no text");
    }
}

void Ask(Trial& trial) {
    ZorvWinIoDll library(false);  // writes no event log
    const std::string model = ModelName(library);
    HttpReport report;
    const auto before = std::chrono::steady_clock::now();
    const std::string body = QuerySettings(trial.server, model, &report);
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - before).count();
    const bool came = report.status != 0 || (report.failed > HttpStep::send && report.failed != HttpStep::none);
    const Step failed = came ? kQuery : report.failed == HttpStep::session ? kNetwork : StepOf(report.error);
    for (int step = kName; step < failed; ++step) {
        trial.steps[step] = {Result::held, ""};
    }
    trial.steps[kCertificate].words = failed != kQuery ? ""
                                      : report.secure  ? "trusted, and for this name"
                                                       : "none: the test server is spoken to without TLS";
    if (!came) {
        const bool slow = report.failed == HttpStep::send && report.error == 12002;
        trial.steps[failed] = {Result::broken, NetworkErrorWords(report.error) +
                                                   (slow ? "; it may have been the name or the certificate too" : "")};
        return;
    }
    trial.steps[kQuery] =
        report.status != 0 && report.status != 200 ? StepResult{Result::broken, HttpStatusWords(report.status)}
        : report.failed != HttpStep::none          ? StepResult{Result::broken, NetworkErrorWords(report.error)}
                                                   : Judge(body);
    trial.steps[kQuery].words += ", after " + std::to_string(took) + " ms";
}

const char* WordOf(Result result) {
    return result == Result::held ? "held" : result == Result::broken ? "BROKEN" : "not tried";
}

void Tell(const Trial& trial, bool asJson) {
    Json steps = Json::array();
    std::string text = "server       " + ReadableText(trial.server) + (trial.builtIn ? ", the built-in one\n" : "\n");
    for (int step = 0; step < kSteps; ++step) {
        const auto& [result, words] = trial.steps[step];
        steps.push_back({{"step", kStepNames[step]},
                         {"result", result == Result::broken ? "broken" : WordOf(result)},
                         {"words", words}});
        text += FitTo(kStepNames[step], 13) +
                (words.empty() ? WordOf(result) : FitTo(WordOf(result), 11) + Wrapped(words, 24, TerminalWidth())) +
                "\n";
    }
    Print(asJson ? DumpJson({{"server", ReadableText(trial.server, false)},
                             {"builtIn", trial.builtIn},
                             {"holds", trial.Holds()},
                             {"steps", steps}}) +
                       "\n"
                 : text);
}

void Test(const std::string& url, bool asJson) {
    Trial trial;
    try {
        CheckMachine();
    } catch (const Failure& failure) {
        throw Failure{failure.text, kWrongUsage};  // nothing can be told
    }
    trial.builtIn = url.empty() && ReadRegString(kLocalMachine, kProductKey, L"BGSERVER_URL") == ERROR_READREG;
    trial.server = url.empty() ? getBGServerURL() : HostOf(url);
    trial.steps[kNetwork] =
        checkNewtWork() ? StepResult{Result::held, ""}
                        : StepResult{Result::broken, "the machine has no network, so no pass asks for anything"};
    if (trial.steps[kNetwork].result == Result::held) {
        Ask(trial);
    }
    if (trial.steps[kName].result == Result::broken && trial.server.find_first_of("/:") != std::string::npos) {
        trial.steps[kName].words += "; BGSERVER_URL takes a bare host name, in spite of its own";
    }
    Tell(trial, asJson);
    Require(trial.Holds(), "");
}

}  // namespace

void AddServerCommands(CLI::App& app) {
    const auto url = std::make_shared<std::string>();
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* group = app.add_subcommand("server", "Looks at the server that this machine sends to");
    group->require_subcommand(1);
    CLI::App* test =
        group->add_subcommand("test", "Meets the server as a pass does: name, connection, certificate, query");
    test->add_option("URL", *url, "Another server's host name, instead of the one that the machine uses")
        ->check(
            [](const std::string& text) { return text.empty() ? "URL is empty: leave it out, or name a host" : ""; });
    test->add_flag("--json", *asJson, "As JSON");
    test->footer(
        "It asks for this machine's settings and changes nothing. A server that does not answer is\n"
        "waited for as long as a pass would, up to 80 seconds.\n"
        "Exit code: 0 when all steps hold, 1 when one is broken, 2 when it cannot be told.");
    test->callback([url, asJson] { Test(*url, *asJson); });
}

}  // namespace zorvalis
