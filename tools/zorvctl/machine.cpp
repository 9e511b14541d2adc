// Makes a stand-in machine, and says whether a pass would collect on it.

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

#include "base/json.h"
#include "commands.h"
#include "common/code_page.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "host.h"
#include "jobs/schedule_predicates.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "schedule.h"

namespace zorvalis {

namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kMonth = 30 * kDay;
constexpr char kOnWindows[] = "the machine is the computer itself";

struct InitOptions {
    std::string folder, manufactured;
    bool force = false;
};

// What a pass would find, and the reasons why it would not collect.
class Status {
public:
    explicit Status(const std::string& machine) {
        Add("machine", machine);
        AddImageState();
        AddAge();
        AddMainSwitch();
        AddHardware(machine);
        AddSettings();
    }
    void Report() const {
        Print(text_ + (problems_.empty() ? "Ready to collect.\n" : "Not ready to collect:\n" + problems_));
    }
    bool Ready() const { return problems_.empty(); }

private:
    void Add(const char* subject, const std::string& found) {
        text_ += FitTo(subject, 14) + ReadableText(found) + "\n";
    }
    void Check(bool fine, const std::string& otherwise) { problems_ += fine ? "" : "  " + otherwise + "\n"; }

    void AddImageState() {
        const std::string state = ReadText(kSetupStateKey, L"ImageState");
        Add("image state", state.empty() ? "not set" : state);
    }

    void AddAge() {
        const std::wstring date = StoredManufacturingDate();
        std::string age;
        try {
            age =
                date.empty() ? "not set" : ", " + std::to_string(std::llround(AgeInSeconds(date)) / kDay) + " days ago";
        } catch (const std::exception&) {  // NotReady tells of it
        }
        const std::string problem = NotReady();
        Add("manufactured", WideToUtf8(date) + age);
        Check(problem.empty(), problem);
    }

    void AddMainSwitch() {
        Add("main switch", MainSwitchText());
        Check(IsSwitchedOn(), "the user has switched it off");
    }

    void AddHardware(const std::string& machine) {
        std::string path = machine + "/hardware.json";
        path = platform::file_exists(path) ? path : OwnFolder() + "/hardware.json";
        Add("hardware", path);
        try {
            ParseJson(ReadWholeFile(path));
        } catch (const Failure& failure) {
            Check(false, failure.text);
        } catch (const std::exception& error) {
            Check(false, path + " is no JSON: " + error.what());
        }
    }

    void AddSettings() {
        try {
            const RulingFile file = FindRulingFile();
            Add("settings", file.path.empty() ? file.why : file.path);
            AddPeriod(file.Number("totalCollectTime"));
            AddDay(file.Number("intervalTimer"));
        } catch (const Failure& failure) {
            Check(false, failure.text);
        }
    }

    void AddPeriod(const std::optional<std::int32_t>& months) {
        Check(months.has_value(), "the settings have no totalCollectTime");
        if (const std::optional<std::int64_t> end = months ? CollectsUntil(*months) : std::nullopt) {
            const std::string over = CollectingIsOver(*months);
            Add("collects", "until " + DateText(*end));
            Check(over.empty(), over);
        }
    }

    void AddDay(const std::optional<std::int32_t>& pause) {
        Check(pause.has_value(), "the settings have no intervalTimer");
        const std::int64_t next = pause ? NextCollectDay(*pause) : 0;
        Check(next == 0, "this is a day of pause: the next pass that collects is on " + DateText(next));
    }

    std::string text_, problems_;
};

// Whether anything that `machine init` writes is there already.
bool IsMade(const std::string& machine) {
    return platform::file_exists(machine + "/hardware.json") || platform::file_exists(machine + "/network.json") ||
           !ReadText(kFactoryConfigKey, L"ManufacturingDate").empty() ||
           !ReadText(kSetupStateKey, L"ImageState").empty();
}

void WriteText(const wchar_t* key, const wchar_t* value, const std::string& data) {
    Require(platform::write_registry_string(kLocalMachine, key, value, Utf82Unicode(data)),
            "the machine's registry cannot be written: check who may write in its folder");
}

void Init(const InitOptions& options) {
    namespace fs = std::filesystem;
    Require(options.manufactured.empty() || ParseDate(options.manufactured) >= 0,
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
    Status(machine).Report();
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
        const Status status(StandInMachine(kOnWindows));
        status.Report();
        Require(status.Ready(), "");
    });
}

}  // namespace zorvalis
