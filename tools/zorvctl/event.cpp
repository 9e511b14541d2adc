// `zorvctl event`: lets sleep, lid, mains, display and firmware events happen to a stand-in machine.
#include "event.h"

#include <CLI/CLI.hpp>
#include <map>
#include <memory>

#include "commands.h"

namespace zorvalis {

void AddEventCommands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("event", "Lets things happen to a stand-in machine");
    group->require_subcommand(1);
    group->add_subcommand(kSuspend, "It is put to sleep")->callback([] { LetHappen(kSuspend, 0); });
    group->add_subcommand(kResume, "It wakes again")->callback([] { LetHappen(kResume, 0); });

    using Words = std::map<std::string, std::uint32_t>;
    const auto add = [group](const char* setting, const char* what, const Words& words) {
        const auto word = std::make_shared<std::string>();
        CLI::App* command = group->add_subcommand(setting, what);
        command->add_option("STATE", *word, "Its new state")->required()->check(CLI::IsMember(words));
        command->callback([setting, words, word] { LetHappen(setting, words.at(*word)); });
    };
    add(kLid, "Its lid is moved", {{"open", 1}, {"close", 0}});
    add(kMains, "Its mains plug goes in or out", {{"in", 0}, {"out", 1}});
    add(kDisplay, "Its display changes", {{"off", 0}, {"on", 1}, {"dimmed", 2}});

    const auto number = std::make_shared<std::int32_t>();
    CLI::App* firmware = group->add_subcommand(kFirmware, "Its firmware reports an event");
    firmware->add_option("N", *number, "The event's number, such as 154")->required();
    firmware->callback([number] { LetHappen(kFirmware, *number); });
}

}  // namespace zorvalis
