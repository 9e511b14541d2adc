// `zorvctl settings`: which setting file rules now and why, and what each of its keys means for this machine.

#include <CLI/CLI.hpp>
#include <memory>

#include "commands.h"
#include "common/deployment.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "facts.h"
#include "machine_views.h"
#include "output.h"
#include "settings/period_codes.h"

namespace zorvalis {

namespace {

enum class Form { Version, Days, Months, Period, Switch };

struct Key {
    const char* name;
    Form form;
    const char* about;
};

constexpr Key kKeys[] = {
    {"version", Form::Version, "version of the service that it is for"},
    {"downloadSetting", Form::Period, "asks the server for settings"},
    {"intervalTimer", Form::Days, "of pause after a day of collecting"},
    {"totalCollectTime", Form::Months, "of 30 days, then collecting ends"},
    {"thermal", Form::Period, "samples temperatures and fans"},
    {"battery_power", Form::Period, "samples battery and power"},
    {"systeminfo", Form::Period, "samples system information"},
    {"upload", Form::Period, "sends files to the server"},
    {"poweronoff", Form::Switch, "power on and off"},
    {"suspend_resume", Form::Switch, "suspend and resume"},
    {"ac_dc", Form::Switch, "mains plugged in and out"},
    {"lid_open_close", Form::Switch, "lid opened and closed"},
    {"quiet_fan", Form::Switch, "quiet fan on and off"},
    {"battery_health", Form::Switch, "battery health mode changed"},
    {"wmi_event", Form::Switch, "hardware events"},
};

std::string PeriodText(std::int32_t seconds) {
    const std::int32_t minutes = seconds / 60;
    return minutes == 60        ? "every hour"
           : minutes == 24 * 60 ? "every day"
           : minutes > 24 * 60  ? "every " + std::to_string(minutes / (24 * 60)) + " days"
                                : "every " + std::to_string(minutes) + " minutes";
}

std::string Meaning(const Key& key, const RulingFile& file, const std::optional<std::string>& value) {
    const std::string about = key.about;
    const std::int32_t period = PeriodSeconds(value.value_or(""));
    switch (key.form) {
        case Form::Version:
            return about;
        case Form::Period:
            return period == 0 ? "never " + about + (value ? ": no period" : "") : about + " " + PeriodText(period);
        case Form::Switch:
            return value == key.name ? "records: " + about : "off: " + about;
        default:
            break;
    }
    const std::optional<std::int32_t> number = file.Number(key.name);
    const bool days = key.form == Form::Days;
    return number ? std::to_string(*number) + (days ? " day" : " month") + (*number == 1 ? " " : "s ") + about
                  : "nothing is ever collected";
}

std::string Trimmed(std::string line) {
    return line.erase(line.find_last_not_of(' ') + 1) + "\n";
}

void PrintSettings(bool asJson) {
    const Json all = SettingsAsJson();
    if (asJson) {
        return Print(DumpJson(all) + "\n");
    }
    const auto text = [](const Json& value) { return ReadableText(value.get<std::string>()); };
    const Json &file = all["file"], &keys = all["keys"];
    Print((file.is_null() ? "" : "file    " + text(file) + "\n") + "rules   " + text(all["why"]) + "\n" + "server  " +
          text(all["server"]) + (all["defaultServer"].get<bool>() ? ", the built-in one" : ", named in BGSERVER_URL") +
          "\n");
    std::string table;
    for (const Key& key : kKeys) {
        if (const auto found = keys.find(key.name); found != keys.end()) {
            const Json& value = found->at("value");
            table += Trimmed(FitTo(key.name, 18) +
                             FitTo(found->at("broken") ? "(broken)"
                                   : value.is_null()   ? "(absent)"
                                                       : text(value),
                                   16) +
                             FitTo(text(found->at("meaning")), 48) + text(found->at("nextInWords")));
        }
    }
    Print(table.empty() ? "" : "\n" + table);
    const std::string heldBack = text(all["heldBack"]);
    Print(heldBack.empty() ? "" : "\nCollecting and sending are held back: " + heldBack + ".\n");
    Print((heldBack.empty() ? "\n" : "") + text(all["verdict"]) + "\n");
}

}  // namespace

Json SettingsAsJson() {
    CheckMachine();
    Facts facts = ReadFacts();
    Require(facts.fault.empty(), facts.fault);
    const RulingFile& file = *facts.file;
    const std::wstring server = ReadRegString(kLocalMachine, kProductKey, L"BGSERVER_URL");
    const bool defaultServer = server == ERROR_READREG;
    const std::string host = ReadableText(defaultServer ? deployment::DefaultServer : WideToUtf8(server));

    Json keys = Json::object();
    for (const Key& key : kKeys) {
        std::optional<std::string> value;
        std::string meaning;
        bool broken = false;
        try {
            value = file.Text(key.name);
            meaning = Meaning(key, file, value);
        } catch (const Failure& failure) {  // of a key without which passes go on
            meaning = ReadableText(failure.text);
            broken = true;
        }
        const Due& due = facts.due[key.name];
        keys[key.name] = {{"value", value ? Json(ReadableText(*value, false)) : Json(nullptr)},
                          {"broken", broken},
                          {"meaning", meaning},
                          {"next", due.at ? Json(*due.at) : Json(nullptr)},
                          {"nextInWords", due.words}};
    }
    const bool none = file.path.empty();
    Json all = {{"file", none ? Json(nullptr) : Json(ReadableText(file.path, false))},
                {"why", ReadableText(file.why, false)},
                {"server", host},
                {"defaultServer", defaultServer},
                {"heldBack", facts.HeldBack()},
                {"verdict", facts.verdict.words},
                {"exitCode", facts.verdict.code},
                {"nextPass", facts.verdict.next ? Json(*facts.verdict.next) : Json(nullptr)}};
    all["keys"] = none ? Json::object() : keys;
    return all;
}

void AddSettingsCommand(CLI::App& app) {
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* settings = app.add_subcommand("settings", "Says which settings rule, why, and what they mean");
    settings->add_flag("--json", *asJson, "As JSON, times in seconds since 1970");
    settings->callback([asJson, settings] {
        if (settings->get_subcommands().empty()) {
            PrintSettings(*asJson);
        }
    });
}

}  // namespace zorvalis
