// zorvctl: the tool beside the service.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "common/version.h"
#include "common/wide_to_utf8.h"
#include "host.h"
#include "output.h"
#include "table_view.h"

namespace zorvalis {

namespace {

// The deepest command that the arguments named, for the hint behind an error.
std::string NamedCommand(const CLI::App& app) {
    std::string name = app.get_name();
    for (const CLI::App* command = &app; !command->get_subcommands().empty();) {
        command = command->get_subcommands().front();
        name += " " + command->get_name();
    }
    return name;
}

}  // namespace

int RunTool(std::vector<std::string> arguments) {
    CLI::App app("Looks after a machine that the Zorvalis service collects on, and shows what was recorded.",
                 "zorvctl");
    app.set_version_flag("--version", std::string("zorvctl ") + kServiceVersion);
    app.require_subcommand(1);
    AddStatusCommand(app);
    AddMachineCommands(app);
    AddShowCommand(app);
    AddQueryCommand(app);
    AddHealthCommand(app);
    AddColumnsCommand(app);
    AddReportCommand(app);
    AddExportCommand(app);
    AddUploadsCommand(app);
    AddSettingsCommand(app);
    AddSettingsCheck(app);
    AddServerCommands(app);
    AddForgetCommand(app);
    AddRegistryCommands(app);
    AddTraceCommand(app);
    AddLogCommand(app);
    AddServiceCommands(app);
    AddCallCommands(app);
    AddEventCommands(app);
    AddTaskCommands(app);
    AddManualCommands(app);

    const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    const auto fail = [&](const std::string& text, int code) {
        // A program that asked for JSON gets JSON: the error as an object, where nothing else was printed.
        if (json && !HasPrinted()) {
            Print("{\"error\": " + JsonText(text.empty() ? "see the error output" : text) + "}\n");
        }
        if (!text.empty()) {
            Complain(text);
        }
        return code;
    };
    try {
        try {
            std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
            app.parse(std::move(arguments));
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() != 0) {
                const std::vector<std::string> rest = app.remaining(true);
                const std::string what = rest.empty() ? error.what() : rest.front() + " is not known here";
                return fail(what + "\nTry: " + NamedCommand(app) + " --help", kWrongUsage);
            }
            std::ostringstream help;
            app.exit(error, help, help);
            Print(help.str());
        }
        FlushOutput();
    } catch (const ClosedOutput&) {
        return 0;
    } catch (const Failure& failure) {
        return fail(failure.text, failure.exitCode);
    } catch (const std::exception& error) {
        return fail(error.what(), 1);
    }
    return 0;
}

}  // namespace zorvalis
