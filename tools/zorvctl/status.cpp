// `zorvctl status`: every link from the service to the server, held or not, and whether collecting goes on by itself.
#include "status.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "base/json.h"
#include "commands.h"
#include "facts.h"
#include "host.h"
#include "output.h"

namespace zorvalis {

namespace {

constexpr int kWhole = 80, kName = 17, kState = 8;

std::string LinkText(const Link& link, int width) {
    const int indent = kName + kState + 1, rest = std::max(width - indent, 30);
    const std::string mend = "-> " + link.mend + "\n";
    const int left = DisplayWidth(mend) <= rest + 1 ? indent : 4;  // never broken: people copy it
    return FitTo(link.name, kName) + FitTo(WordOf(link.state), kState) + " " +
           Wrapped(link.why, indent, indent + rest) + "\n" +
           (link.mend.empty() || link.state == LinkState::held
                ? ""
                : std::string(static_cast<std::size_t>(left), ' ') + mend);
}

Json AsJson(const Facts& facts) {
    Json links = Json::array();
    for (const Link& link : facts.links) {
        links.push_back({{"link", link.name},
                         {"state", WordOf(link.state)},
                         {"why", link.why},
                         {"mend", link.mend.empty() ? Json(nullptr) : Json(link.mend)}});
    }
    const Verdict& verdict = facts.verdict;
    return {{"links", links},
            {"now", facts.now},
            {"nextPass", verdict.next ? Json(*verdict.next) : Json(nullptr)},
            {"exitCode", verdict.code},
            {"verdict", verdict.words}};
}

}  // namespace

void PrintStatus(bool asJson) {
    Facts facts;
    try {
        CheckMachine();
        facts = ReadFacts();
    } catch (const Failure& failure) {
        if (asJson) {
            Print(DumpJson(
                      {{"links", Json::array()}, {"nextPass", nullptr}, {"exitCode", 2}, {"verdict", failure.text}}) +
                  "\n");
        }
        throw Failure{failure.text, 2};
    }
    ReadServer(facts);
    facts.verdict = Judge(facts);
    if (asJson) {
        Print(DumpJson(AsJson(facts)) + "\n");
    } else {
        const int width = TerminalWidth() > 0 ? TerminalWidth() : kWhole;
        for (const Link& link : facts.links) {
            Print(LinkText(link, width));
        }
        Print("\n" + Wrapped(facts.verdict.words, 0, width) + "\n");
    }
    Require(facts.verdict.code == 0, "", facts.verdict.code);
}

void AddStatusCommand(CLI::App& app) {
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* status = app.add_subcommand("status", "Says whether samples are collected and sent, and if not, why");
    status->add_flag("--json", *asJson, "As JSON, times in seconds since 1970");
    status->footer(
        "Exit code 0: collecting goes on by itself, perhaps with warnings; 1: it does not; 2: this caller cannot\n"
        "tell. Changes nothing. Asks the server for one empty answer.");
    status->callback([asJson] { PrintStatus(*asJson); });
}

}  // namespace zorvalis
