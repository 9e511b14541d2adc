// Asks the running service as an application does, by a JSON text or by a direct call.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "commands.h"
#include "common/version.h"
#include "host.h"
#include "output.h"
#include "platform/clock.h"
#include "service_client.h"

namespace zorvalis {

namespace {

struct Fact {
    const char* name;
    const char* about;
    int function;
    const char* direct;  // the name of the direct call; null when there is none
};

constexpr Fact kFacts[] = {
    {"model", "The model's name", 0, "GetModelName"},
    {"serial", "The serial number", 1, "GetSerialNumber"},
    {"family", "The name of the family", 2, "GetFamilyName"},
    {"chassis", "What kind of computer it is", 12, "GetChassisTypes"},
    {"product", "The product's name", 13, "GetProductName"},
    {"battery-health", "How far the battery is charged: 100, 80 or 60; -1: no such mode", 3, "GetBatteryHealthMode"},
    {"quiet-fan", "Quiet fan: 1 on, 0 off, -1 no such mode", 4, "GetQuietFanMode"},
    {"system-info", "System, firmware, processor, graphics, memory and disks, as JSON", 5, "GetSystemInfoData"},
    {"main-switch", "Whether anything is collected at all: 1 or 0", 11, "GetMainSwitchByUser"},
    {"uuid", "The device's identity in its records", 16, "GetUUID"},
    {"wifi", "The name of the wireless card", 18, nullptr},
    {"version", "The service's version", 9, "GetVersionString"},
};

constexpr char kDirect[] = "By the direct call; prints its callback as it came";

struct GetOptions {
    bool direct = false, json = false;
};

void Get(const Fact& fact, const GetOptions& options) {
    if (!options.direct) {
        const std::string value = ServiceClient().Get(fact.function);
        return Print((options.json ? DumpJson({{"name", fact.name}, {"value", ReadableText(value, false)}})
                                   : ReadableText(value)) +
                     "\n");
    }
    Require(fact.direct != nullptr, std::string(fact.name) + " has no direct call: leave out --direct", kWrongUsage);
    const std::string answer = ServiceClient().Direct(fact.direct);
    Require(!answer.empty(), "no callback came: another call kept the service busy for a minute");
    Print(answer);
}

// The service does not say whether the device took the mode, so the mode is read again and compared.
void SetMode(const Fact& mode, const std::string& value, bool direct, const char* procedure) {
    ServiceClient service;
    const std::string callbacks = service.Direct(procedure, {value});
    if (direct) {
        return Print(callbacks);
    }
    const std::string now = service.Get(mode.function);
    Require(now != "-1", std::string("this machine has no ") + mode.name + " mode");
    Require(now == value, std::string("the service was asked, but ") + mode.name + " is " + ReadableText(now));
}

void Set(int function, const char* procedure, const std::string& value, bool direct) {
    ServiceClient service;
    if (direct) {
        return Print(service.Direct(procedure, {value}));
    }
    service.Ask(function, {{"p1", value}});
}

struct ConsentOptions {
    std::string account, app = "zorvctl", version = kServiceVersion, time;
    bool agrees = false, refuses = false, direct = false;
};

void Consent(ConsentOptions options) {
    Require(options.agrees != options.refuses, "how did the user answer? Say --agree or --refuse", kWrongUsage);
    if (options.account.empty()) {
        options.account = UserName();
    }
    if (options.time.empty()) {
        options.time = LocalTimeText(static_cast<double>(platform::now_microseconds()) / 1e6);
    }
    ServiceClient service;
    const char* const agrees = options.agrees ? "1" : "0";
    if (!options.direct) {
        service.Ask(17, {{"p1", options.account},
                         {"p2", options.app},
                         {"p3", options.version},
                         {"p4", options.time},
                         {"p5", agrees}});
        return;
    }
    const std::string recorded =
        service.Direct("SetMyZorvPP", {options.account, options.app, options.version, options.time, agrees});
    Require(recorded == "1\n", options.agrees ? "the service did not record the consent"
                                              : "the direct call records no refusal: leave out --direct");
}

const Fact& FactOf(const std::string& name) {
    return *std::find_if(std::begin(kFacts), std::end(kFacts), [&](const Fact& fact) { return fact.name == name; });
}

void AddGetCommands(CLI::App& app) {
    const auto options = std::make_shared<GetOptions>();
    CLI::App* group = app.add_subcommand("get", "Asks the running service for one value, and prints it alone");
    group->require_subcommand(1);
    for (const Fact& fact : kFacts) {
        CLI::App* command = group->add_subcommand(fact.name, fact.about);
        CLI::Option* direct = command->add_flag("--direct", options->direct, kDirect);
        command->add_flag("--json", options->json, "As JSON, with its name")->excludes(direct);
        command->callback([&fact, options] { Get(fact, *options); });
    }
}

void AddSetCommands(CLI::App& app, const std::shared_ptr<bool>& direct) {
    CLI::App* group = app.add_subcommand("set", "Lets the running service set something");
    group->require_subcommand(1);
    const auto value = std::make_shared<std::string>();
    const auto add = [&](const char* name, const char* option, const char* what, const char* about, auto action) {
        CLI::App* command = group->add_subcommand(name, what);
        command->add_option(option, *value, about)->required();
        command->add_flag("--direct", *direct, kDirect);
        command->callback([value, direct, action] { action(*value, *direct); });
        return command;
    };
    const auto isOn = [](const std::string& word) {
        Require(word == "on" || word == "off", "say on or off, not " + word, kWrongUsage);
        return word == "on";
    };
    constexpr char kModes[] =
        "The mode is set by the direct call, which makes a record too, and read again; --direct\n"
        "prints the callback instead. The JSON call (function 15 for battery-health, 14 for\n"
        "quiet-fan) only makes the record that a user changed the mode: see `zorvctl call`.";
    add("battery-health", "PERCENT", "How far the battery is charged", "100, 80 or 60",
        [](const std::string& percent, bool isDirect) {
            Require(percent == "100" || percent == "80" || percent == "60", "say 100, 80 or 60, not " + percent,
                    kWrongUsage);
            SetMode(FactOf("battery-health"), percent, isDirect, "SetBatteryHealth");
        })
        ->footer(kModes);
    add("quiet-fan", "STATE", "Whether the fan is kept quiet", "on or off",
        [isOn](const std::string& word, bool isDirect) {
            SetMode(FactOf("quiet-fan"), isOn(word) ? "1" : "0", isDirect, "SetQuietFan");
        })
        ->footer(kModes);
    add("main-switch", "STATE", "Whether anything is collected at all", "on or off",
        [isOn](const std::string& word, bool isDirect) {
            Set(10, "SetMainSwitchByUser", isOn(word) ? "1" : "0", isDirect);
        });
    add("app-folder", "PATH", "The folder of the maker's applications", "The folder, as the hardware library takes it",
        [](const std::string& path, bool isDirect) { Set(8, "SetAppFolder", path, isDirect); });
}

void AddConsentCommand(CLI::App& app) {
    const auto options = std::make_shared<ConsentOptions>();
    CLI::App* consent =
        app.add_subcommand("consent", "Lets the running service record an answer to the privacy policy");
    consent->add_flag("--agree", options->agrees, "The user agreed");
    consent->add_flag("--refuse", options->refuses, "The user refused");
    consent->add_option("--account", options->account, "The user's account, otherwise the one of this session");
    consent->add_option("--app", options->app, "The application that asked, otherwise zorvctl");
    consent->add_option("--app-version", options->version, "Its version, otherwise this tool's");
    consent->add_option("--time", options->time, "When, as 2026-11-12 09:08:07.006; otherwise now");
    consent->add_flag("--direct", options->direct, "By the direct call, which records no refusal and has no callback");
    consent->footer("The answer is handed to the library ChkReg beside the service; without it nothing is recorded.");
    consent->callback([options] { Consent(*options); });
}

bool IsSuccess(const std::string& answer) {
    try {
        return ParseJson(answer).at("status") == "Success";
    } catch (const std::logic_error&) {
        return false;
    }
}

}  // namespace

void AddCallCommands(CLI::App& app) {
    const auto text = std::make_shared<std::string>();
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* call = app.add_subcommand("call", "Asks the running service by a JSON text, and prints its answer");
    call->add_option("TEXT", *text, R"(The call, such as {"function":9,"version":1})")->required();
    call->add_option("ARGUMENTS", *words,
                     "With the name of a direct call in TEXT's place, its arguments but the cookie");
    call->callback([text, words] {
        const bool direct = ServiceClient::HasDirect(*text);
        const bool json = words->empty() && text->find_first_of(" {[\"") != std::string::npos;  // or meant to be
        Require(direct || json, *text + " is neither a direct call nor JSON", kWrongUsage);
        const std::string answer = direct ? ServiceClient().Direct(*text, *words) : ServiceClient().Call(*text) + "\n";
        Print(answer);
        Require(direct || IsSuccess(answer), "");
    });
    call->footer("A JSON call fails when its answer's status is an error. Ctrl-C gives up waiting for a busy service.");
    const auto direct = std::make_shared<bool>(false);
    AddGetCommands(app);
    AddSetCommands(app, direct);
    AddConsentCommand(app);
}

}  // namespace zorvalis
