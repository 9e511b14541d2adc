// zorvsetup: what an installer of the service does beside moving files. Windows Installer runs it as LocalSystem, the
// scripts of the ZIP as an administrator. The exit code is 0 or a Windows error number.

#include <windows.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "common/version.h"
#include "platform/entry.h"
#include "platform/text.h"
#include "platform/windows/wide.h"
#include "report.h"
#include "setup.h"

namespace zorvalis {
namespace {

constexpr int kUnhandled = 574;  // ERROR_UNHANDLED_EXCEPTION, which the headers lack

int RunCommand(std::vector<std::string> arguments) {
    CLI::App app("Sets the Zorvalis service up on this machine, and takes it off again.", "zorvsetup");
    app.set_version_flag("--version", std::string("zorvsetup ") + kServiceVersion);
    app.require_subcommand(1);
    unsigned limit = 120;
    std::string folder;
    bool purge = false;
    app.add_subcommand("check", "Whether this Windows will do")->callback(CheckWindows);
    CLI::App* stop = app.add_subcommand("stop", "Ends service, scheduled tasks and passes, before files are replaced");
    stop->add_option("--timeout", limit, "Seconds for the service to stop; passes have a minute at most")
        ->capture_default_str()
        ->check(CLI::Range(0, 3600));
    stop->callback([&] { Stop(std::chrono::seconds(limit)); });
    CLI::App* configure = app.add_subcommand("configure", "Makes data folder, service, event source and PATH entry");
    configure->add_option("folder", folder, "Where the service's files are")->required();
    configure->callback([&] { Configure(platform::to_wide(folder)); });
    app.add_subcommand("start", "Starts the service")->callback(Start);
    CLI::App* remove = app.add_subcommand("remove", "Takes service, tasks, event source and PATH entry away");
    remove->add_flag("--purge", purge, "And all records, settings and registry values, for good");
    remove->callback([&] { Remove(purge); });
    app.add_subcommand("undo", "Puts back what configure or remove changed")->callback(Undo);
    app.add_subcommand("resume", "Starts the service if it ran before stop")->callback(Resume);
    app.add_subcommand("commit", "Forgets what undo and resume need")->callback(Commit);
    try {
        std::string line = "zorvsetup " + std::string(kServiceVersion);
        for (const std::string& argument : arguments) {
            line += " " + argument;
        }
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // taken from the back
        Say(line);
        app.parse(std::move(reversed));
        return 0;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            const std::vector<std::string> rest = app.remaining(true);
            Say("FAILED: " + (rest.empty() ? error.what() : rest.front() + " is not known here") +
                "\nTry: zorvsetup --help");
            return ERROR_INVALID_PARAMETER;
        }
        std::ostringstream words;
        app.exit(error, words, words);
        Say(words.str());
        return 0;
    } catch (const Failure& failure) {
        Say("FAILED: " + failure.text);
        return static_cast<int>(failure.code);
    } catch (const std::exception& error) {
        Say(std::string("FAILED: ") + error.what());
        return kUnhandled;
    }
}

// This program has no console of its own (CMakeLists.txt): it writes into that of the script, or where that directs it.
void UseConsoleOfCaller() {
    const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    if ((output == nullptr || ::GetFileType(output) == FILE_TYPE_UNKNOWN) && ::AttachConsole(ATTACH_PARENT_PROCESS)) {
        std::freopen("CONOUT$", "w", stdout);
    }
}

}  // namespace
}  // namespace zorvalis

int program_main(int argc, const wchar_t* const* argv) {
    zorvalis::UseConsoleOfCaller();
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.push_back(platform::to_utf8(argv[i]));
    }
    return zorvalis::RunCommand(std::move(arguments));
}
