// Lets things happen to a stand-in machine: sleep, lid, mains, display, events of the firmware. The machine keeps the
// states that last, and the service hears of them as it does on Windows.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>
#include <memory>

#include "base/json.h"
#include "commands.h"
#include "output.h"
#include "platform/files.h"
#include "platform/linux/power_settings.h"
#include "platform/linux/service_control.h"
#include "service_process.h"

namespace zorvalis {

namespace {

constexpr char kOnWindows[] = "the machine is the real one, and what happens to it happens";
constexpr int kSuspend = 4, kResume = 7;

// Why the service has not taken the event; empty when it has.
std::string Deliver(const Json& control) {
    std::string text;
    if (!SendToMachine(platform::kControlSocket, DumpJson(control), &text)) {
        return "no service is running";
    }
    const Json answer = text.empty() ? Json() : ParseJson(text);
    if (!answer.is_object()) {
        return "the service ended without an answer";
    }
    const std::uint32_t error = answer.value("result", 0U);
    return answer.contains("error") ? answer["error"].get<std::string>()
           : error == 1052          ? "the service accepts no power events"
           : error != 0             ? "the service answered with error " + std::to_string(error)
                                    : "";
}

void Sleep(int event) {
    StandInMachine(kOnWindows);
    const std::string problem = Deliver({{"control", platform::kControlPowerEvent}, {"event", event}});
    Require(problem.empty(), problem);
}

void KeepState(const std::string& path, const std::string& setting, std::uint32_t state) {
    Json states = Json::object();
    try {
        states = platform::file_exists(path) ? ParseJson(ReadWholeFile(path)) : states;
        Require(states.is_object(), path + " is no JSON object");
    } catch (const std::logic_error& error) {
        throw Failure{path + " is no JSON: " + error.what()};
    }
    states[setting] = state;
    WriteWholeFile(path + ".new", DumpJson(states) + "\n");
    std::filesystem::rename(path + ".new", path);
}

// The state is the machine's, whether or not the service hears of it.
void Change(const platform::PowerSettingName& setting, std::uint32_t state) {
    KeepState(StandInMachine(kOnWindows) + "/" + platform::kPowerFile, setting.name, state);
    const std::string problem = Deliver({{"control", platform::kControlPowerEvent},
                                         {"event", platform::kPowerSettingChange},
                                         {"setting", setting.guid},
                                         {"data", state}});
    if (!problem.empty()) {
        Complain("the machine keeps the new state, but " + problem);
    }
}

void Firmware(std::int32_t number) {
    StandInMachine(kOnWindows);
    Require(SendToMachine("run/events", DumpJson({{"EventID", number}}), nullptr),
            "nobody listens for events of the firmware: a running service does from two minutes after its start");
}

}  // namespace

void AddEventCommands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("event", "Lets things happen to a stand-in machine");
    group->require_subcommand(1);
    group->add_subcommand("suspend", "It is put to sleep")->callback([] { Sleep(kSuspend); });
    group->add_subcommand("resume", "It wakes again")->callback([] { Sleep(kResume); });

    using Words = std::map<std::string, std::uint32_t>;
    const auto add = [group](const platform::PowerSettingName& setting, const char* what, const Words& words) {
        const auto word = std::make_shared<std::string>();
        CLI::App* command = group->add_subcommand(setting.name, what);
        command->add_option("STATE", *word, "Its new state")->required()->check(CLI::IsMember(words));
        command->callback([setting, words, word] { Change(setting, words.at(*word)); });
    };
    add(platform::kPowerSettings[0], "Its lid is moved", {{"open", 1}, {"close", 0}});
    add(platform::kPowerSettings[1], "Its mains plug goes in or out", {{"in", 0}, {"out", 1}});
    add(platform::kPowerSettings[2], "Its display changes", {{"off", 0}, {"on", 1}, {"dimmed", 2}});

    const auto number = std::make_shared<std::int32_t>();
    CLI::App* firmware = group->add_subcommand("wmi", "Its firmware reports an event");
    firmware->add_option("N", *number, "The event's number, such as 154")->required();
    firmware->callback([number] { Firmware(*number); });
}

}  // namespace zorvalis
