// `zorvctl machine`: makes a stand-in machine.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "common/code_page.h"
#include "common/files.h"
#include "common/registry.h"
#include "facts.h"
#include "host.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "status.h"

namespace zorvalis {

namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kMonth = 30 * kDay;
constexpr char kOnWindows[] = "the machine is the computer itself; `zorvctl status` looks at it";

struct InitOptions {
    std::string folder, manufactured;
    bool force = false;
};

// Whether anything that `machine init` writes is there already.
bool IsMade(const std::string& machine) {
    const auto isSet = [](const wchar_t* key, const wchar_t* value) {
        const std::wstring text = ReadRegString(kLocalMachine, key, value);
        return text != ERROR_READREG && !text.empty();
    };
    return platform::file_exists(machine + "/hardware.json") || platform::file_exists(machine + "/network.json") ||
           isSet(kFactoryConfigKey, L"ManufacturingDate") || isSet(kSetupStateKey, L"ImageState");
}

// Year, month and day with slashes, since 1970.
bool IsCalendarDate(const std::string& text) {
    int year = 0, month = 0, day = 0;
    char rest = 0;
    return std::sscanf(text.c_str(), "%4d/%2d/%2d%c", &year, &month, &day, &rest) == 3 && year >= 1970 &&
           (std::chrono::year(year) / month / day).ok();
}

void WriteText(const wchar_t* key, const wchar_t* value, const std::string& data) {
    Require(platform::write_registry_string(kLocalMachine, key, value, Utf82Unicode(data)),
            "the machine's registry cannot be written: check who may write in its folder");
}

void Init(const InitOptions& options) {
    namespace fs = std::filesystem;
    Require(options.manufactured.empty() || IsCalendarDate(options.manufactured),
            "--manufactured takes a date as year/month/day, not " + options.manufactured, kWrongUsage);
    if (!options.folder.empty()) {
        UseMachine(fs::absolute(options.folder).lexically_normal().string().c_str());
    }
    const std::string problem = platform::machine_problem();  // makes the folder, unless it cannot serve
    Require(problem.empty(), problem);
    const std::string machine = StandInMachine(kOnWindows);
    Require(options.force || !IsMade(machine),
            machine + " is a machine already and was left alone; --force sets it up anew and keeps its data");

    const std::string hardware = ReadWholeFile(OwnFile("hardware.json"));
    for (const char* folder : {"registry", "ProgramData", "run", "tasks", "services"}) {
        fs::create_directories(fs::path(machine) / folder);
    }
    WriteWholeFile(machine + "/hardware.json", hardware);
    WriteWholeFile(machine + "/network.json", "{\"online\": true, \"hosts\": {}}\n");
    WriteText(kSetupStateKey, L"ImageState", "IMAGE_STATE_COMPLETE");
    WriteText(kFactoryConfigKey, L"ManufacturingDate",
              options.manufactured.empty() ? DateText(platform::now_seconds() - 3 * kMonth) : options.manufactured);
    Print("machine  " + ReadableText(machine) + "\nReady to collect once the service is there: `\"" +
          OwnFile("zorvalis-agent-service") +
          "\" -install`, then\n"
          "`zorvctl service start` and `zorvctl tasks run`; `zorvctl status` tells what is missing.\n");
}

}  // namespace

void AddMachineCommands(CLI::App& app) {
    const auto options = std::make_shared<InitOptions>();
    CLI::App* group = app.add_subcommand("machine", "Makes a stand-in machine and looks at it");
    group->require_subcommand(1);
    group->footer(
        "The machine is the folder that ZORV_MACHINE names, else $XDG_STATE_HOME/zorv-machine,\n"
        "else ~/.local/state/zorv-machine.");
    CLI::App* init = group->add_subcommand("init", "Makes a machine that is ready to collect");
    init->add_option("DIR", options->folder, "Its folder; without one, the environment's");
    init->add_option("--manufactured", options->manufactured, "When it left the factory, instead of three months ago")
        ->type_name("YEAR/MONTH/DAY");
    init->add_flag("--force", options->force, "Sets an existing machine up anew; what it recorded stays");
    init->callback([options] { Init(*options); });

    group->add_subcommand("path", "Prints the machine's folder")->callback([] {
        Print((platform::machine_folder().empty() ? StandInMachine(kOnWindows) : platform::machine_folder()) + "\n");
    });
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* status = group->add_subcommand("status", "The same as `zorvctl status`");
    status->add_flag("--json", *asJson, "As JSON, times in seconds since 1970");
    status->callback([asJson] { PrintStatus(*asJson); });
}

}  // namespace zorvalis
