// `zorvctl tasks` on Windows, which has a real task scheduler: both commands only say so.

#include <CLI/CLI.hpp>

#include "commands.h"
#include "output.h"

namespace zorvalis {

void AddTaskCommands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("tasks", "Looks at the scheduled tasks of a stand-in machine and starts them");
    group->require_subcommand(1);
    for (const char* name : {"list", "run"}) {
        group->add_subcommand(name, "Not on Windows")->allow_extras()->callback([] {
            StandInMachine("look at its tasks, and start them, with the system's own task scheduler");
        });
    }
}

}  // namespace zorvalis
