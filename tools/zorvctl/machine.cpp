// Makes a stand-in machine, and says whether a pass would collect on it.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>

#include "commands.h"
#include "common/code_page.h"
#include "common/files.h"
#include "common/json.h"
#include "common/registry.h"
#include "common/text.h"
#include "common/version.h"
#include "host.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/module.h"

namespace zorvalis {

namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kMonth = 30 * kDay;
constexpr char kOnWindows[] = "the machine is the computer itself";

struct InitOptions {
    std::string folder, manufactured;
    bool force = false;
};

// Where the service, the hardware library and default.json lie too.
std::string OwnFolder() {
    wchar_t path[4096];
    platform::module_file_name(path, 4096);
    return std::filesystem::path(WideToUtf8(path)).parent_path().string();
}

std::string DateText(std::int64_t seconds) {
    std::string text = LocalTimeText(static_cast<double>(seconds)).substr(0, 10);
    text[4] = text[7] = '/';
    return text;
}

// Local midnight of a date with slashes, in seconds since 1970; -1 for anything else.
std::int64_t ParseDate(const std::string& text) {
    int year = 0, month = 0, day = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%4d/%2d/%2d%c", &year, &month, &day, &rest) != 3 ||
        !(std::chrono::year(year) / month / day).ok()) {
        return -1;
    }
    std::tm date{};
    date.tm_year = year - 1900;
    date.tm_mon = month - 1;
    date.tm_mday = day;
    date.tm_isdst = -1;
    return std::mktime(&date);
}

std::string ReadText(const wchar_t* key, const wchar_t* value) {
    std::wstring data;
    return platform::read_registry_string(kLocalMachine, key, value, data) ? WideToUtf8(data) : "";
}

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
        Check(state == "IMAGE_STATE_COMPLETE", "the system's setup is not complete");
    }

    void AddAge() {
        std::string text = ReadText(kFactoryConfigKey, L"ManufacturingDate");
        text = ParseDate(text) >= 0 ? text : ReadText(kProductKey, L"FakeManufacturingDate");
        manufactured_ = ParseDate(text);
        const std::int64_t age = platform::now_seconds() - manufactured_;
        Add("manufactured", manufactured_ >= 0 ? text + ", " + std::to_string(age / kDay) + " days ago" : "not set");
        Check(manufactured_ >= 0, "there is no date of manufacture: the first pass sets one and waits a week");
        Check(manufactured_ < 0 || age > 7 * kDay, "the machine is no older than a week");
    }

    void AddMainSwitch() {
        const std::string value = ReadText(kProductKey, L"MainSwitch");
        Add("main switch", value.empty() ? "never set, so on" : value == "1" ? "on" : "off, " + value);
        Check(value.empty() || value == "1", "the user has switched it off");
    }

    // Nothing, and a problem, for a file that is missing or no JSON.
    std::optional<Json> Read(const std::string& path) {
        try {
            return ParseJson(ReadWholeFile(path));
        } catch (const Failure& failure) {
            Check(false, failure.text);
        } catch (const std::exception& error) {
            Check(false, path + " is no JSON: " + error.what());
        }
        return std::nullopt;
    }

    // Empty when the key is absent; a problem when it holds no text, since a pass ends there.
    std::string Text(const Json& settings, const char* key) {
        const Json value = settings.is_object() ? settings.value(key, Json("")) : Json("");
        Check(value.is_string(), std::string("the settings hold no text under ") + key);
        return value.is_string() ? value.get<std::string>() : "";
    }

    void AddHardware(const std::string& machine) {
        std::string path = machine + "/hardware.json";
        path = platform::file_exists(path) ? path : OwnFolder() + "/hardware.json";
        Add("hardware", path);
        Read(path);
    }

    void AddSettings() {
        std::string path = platform::native_path(std::string(kProductFolder) + "setting.json");
        std::optional<Json> settings;
        bool rules = platform::file_exists(path);
        if (rules) {
            settings = Read(path);
            rules = !settings || Text(*settings, "version") == kServiceVersion;
        }
        if (!rules) {
            path = OwnFolder() + "/default.json";
            settings = Read(path);
        }
        Add("settings", path);
        if (settings) {
            AddPeriod(Text(*settings, "totalCollectTime"));
            AddDay(Text(*settings, "intervalTimer"));
        }
    }

    // A time of activation in the firmware would stand in for the date of manufacture; it is not looked at here.
    void AddPeriod(const std::string& months) {
        const std::int64_t end = manufactured_ + std::strtol(months.c_str(), nullptr, 10) * kMonth;
        Check(!months.empty(), "the settings have no totalCollectTime");
        if (!months.empty() && manufactured_ >= 0) {
            Add("collects", "until " + DateText(end));
            Check(end > platform::now_seconds(), "the " + months + " months in which a machine collects are over");
        }
    }

    void AddDay(const std::string& pause) {
        const std::string stored = ReadText(kProductKey, L"lastDojobTime");
        const std::int64_t last = std::strtoll(stored.c_str(), nullptr, 10);
        const std::int64_t next = last + (std::strtol(pause.c_str(), nullptr, 10) + 1) * kDay;
        const std::int64_t now = platform::now_seconds();
        Check(!pause.empty(), "the settings have no intervalTimer");
        Check(last == 0 || now - last < kDay || now >= next,
              "this is a day of pause: the next pass that collects is on " + DateText(next));
    }

    std::string text_, problems_;
    std::int64_t manufactured_ = -1;
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
