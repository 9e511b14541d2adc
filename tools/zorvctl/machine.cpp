// `zorvctl machine`: makes a stand-in machine, and says whether a pass would collect on it.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "base/json.h"
#include "commands.h"
#include "common/code_page.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "facts.h"
#include "host.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"

namespace zorvalis {

namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kMonth = 30 * kDay;
constexpr char kOnWindows[] = "the machine is the computer itself";

struct InitOptions {
    std::string folder, manufactured;
    bool force = false;
};

// Why the stand-in library cannot read its hardware.json; empty when it can.
std::string HardwareProblem(const std::string& path) {
    try {
        ParseJson(ReadWholeFile(path));
    } catch (const Failure& failure) {
        return failure.text;
    } catch (const std::exception& error) {
        return path + " is no JSON: " + error.what();
    }
    return "";
}

std::string MadeText(const Facts& facts) {
    return facts.made.text.empty() ? "not set"
           : !facts.age
               ? WideToUtf8(facts.made.text)
               : WideToUtf8(facts.made.text) + ", " + std::to_string(std::llround(*facts.age) / kDay) + " days ago";
}

// Prints what a pass would find, and why it would not collect. False when it would not.
bool Report(const std::string& machine) {
    const Facts facts = ReadFacts();
    const auto add = [](const char* subject, const std::string& found) {
        Print(FitTo(subject, 14) + ReadableText(found) + "\n");
    };
    add("machine", machine);
    add("image state", ImageStateOf(facts.imageState) == ImageState::missing || facts.imageState.empty()
                           ? "not set"
                           : WideToUtf8(facts.imageState));
    add("manufactured", MadeText(facts));
    add("main switch", MainSwitchText(facts.mainSwitch));
    std::string hardware = machine + "/hardware.json";
    hardware = platform::file_exists(hardware) ? hardware : OwnFolder() + "/hardware.json";
    add("hardware", hardware);
    if (facts.file) {
        add("settings", facts.file->path.empty() ? facts.file->why : facts.file->path);
    }
    if (const auto end = facts.due.find("totalCollectTime"); end != facts.due.end()) {
        add("collects", end->second.words);
    }
    std::string problems = HardwareProblem(hardware);
    problems = problems.empty() ? "" : "  " + problems + "\n";
    for (const Obstacle& obstacle : facts.obstacles) {
        problems += "  " + obstacle.words + "\n";
    }
    Print(problems.empty() ? "Ready to collect.\n" : "Not ready to collect:\n" + problems);
    return problems.empty();
}

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

    const std::string hardware = ReadWholeFile(OwnFolder() + "/hardware.json");
    for (const char* folder : {"registry", "ProgramData", "run", "tasks", "services"}) {
        fs::create_directories(fs::path(machine) / folder);
    }
    WriteWholeFile(machine + "/hardware.json", hardware);
    WriteWholeFile(machine + "/network.json", "{\"online\": true, \"hosts\": {}}\n");
    WriteText(kSetupStateKey, L"ImageState", "IMAGE_STATE_COMPLETE");
    WriteText(kFactoryConfigKey, L"ManufacturingDate",
              options.manufactured.empty() ? DateText(platform::now_seconds() - 3 * kMonth) : options.manufactured);
    Report(machine);
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
        Require(!platform::machine_folder().empty(),
                std::string("there is no stand-in machine on Windows: ") + kOnWindows);
        Print(platform::machine_folder() + "\n");
    });
    group->add_subcommand("status", "Says what is there, and whether a pass would collect")->callback([] {
        Require(Report(StandInMachine(kOnWindows)), "");
    });
}

}  // namespace zorvalis
