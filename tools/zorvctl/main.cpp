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
#if defined(_WIN32)
#include "platform/windows/process.h"
#endif

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

int Run(std::vector<std::string> arguments) {
    CLI::App app("Looks after a machine that the Zorvalis service collects on, and shows what was recorded.",
                 "zorvctl");
    app.set_version_flag("--version", std::string("zorvctl ") + zorvalis::kServiceVersion);
    app.require_subcommand(1);
    zorvalis::AddMachineCommands(app);
    zorvalis::AddShowCommand(app);
    zorvalis::AddUploadsCommand(app);
    zorvalis::AddSettingsCommand(app);
    zorvalis::AddRegistryCommands(app);
    zorvalis::AddTraceCommand(app);
    zorvalis::AddLogCommand(app);
    zorvalis::AddServiceCommands(app);
    zorvalis::AddCallCommands(app);
    zorvalis::AddEventCommands(app);
    zorvalis::AddTaskCommands(app);

    try {
        try {
            std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
            app.parse(std::move(arguments));
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() != 0) {
                const std::vector<std::string> rest = app.remaining(true);
                const std::string what = rest.empty() ? error.what() : rest.front() + " is not known here";
                zorvalis::Complain(what + "\nTry: " + NamedCommand(app) + " --help");
                return 2;
            }
            std::ostringstream help;
            app.exit(error, help, help);
            zorvalis::Print(help.str());
        }
        zorvalis::FlushOutput();
    } catch (const zorvalis::ClosedOutput&) {
        return 0;
    } catch (const zorvalis::Failure& failure) {
        if (!failure.text.empty()) {
            zorvalis::Complain(failure.text);
        }
        return failure.exitCode;
    } catch (const std::exception& error) {
        zorvalis::Complain(error.what());
        return 1;
    }
    return 0;
}

}  // namespace

#if defined(_WIN32)
int wmain(int argc, wchar_t** argv) {
    platform::distrust_users();
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.push_back(zorvalis::WideToUtf8(argv[i]));
    }
#else
int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
#endif
    zorvalis::PrepareOutput();
    return Run(std::move(arguments));
}
