// Tells which setting file rules now and why, and what each of its keys means for this machine.

#include <CLI/CLI.hpp>
#include <memory>

#include "commands.h"
#include "common/deployment.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "output.h"
#include "schedule.h"

namespace zorvalis {

namespace {

enum class Form { Version, Days, Months, Period, Switch };

struct Key {
    const char* name;
    Form form;
    const char* about;
    const wchar_t* timer;
};

constexpr Key kKeys[] = {
    {"version", Form::Version, "version of the service that it is for", nullptr},
    {"downloadSetting", Form::Period, "asks the server for settings", L"getSettingFile"},
    {"intervalTimer", Form::Days, "of pause after a day of collecting", nullptr},
    {"totalCollectTime", Form::Months, "of 30 days, then collecting ends", nullptr},
    {"thermal", Form::Period, "samples temperatures and fans", L"GetThermal"},
    {"battery_power", Form::Period, "samples battery and power", L"GetBatteryPower"},
    {"systeminfo", Form::Period, "samples system information", L"GetSystemInfo"},
    {"upload", Form::Period, "sends files to the server", L"upload"},
    {"poweronoff", Form::Switch, "power on and off", nullptr},
    {"suspend_resume", Form::Switch, "suspend and resume", nullptr},
    {"ac_dc", Form::Switch, "mains plugged in and out", nullptr},
    {"lid_open_close", Form::Switch, "lid opened and closed", nullptr},
    {"quiet_fan", Form::Switch, "quiet fan on and off", nullptr},
    {"battery_health", Form::Switch, "battery health mode changed", nullptr},
    {"wmi_event", Form::Switch, "hardware events", nullptr},
};

std::string PeriodText(const std::string& code) {
    const std::int32_t minutes = PeriodSeconds(code) / 60;
    return minutes == 60        ? "every hour"
           : minutes == 24 * 60 ? "every day"
           : minutes > 24 * 60  ? "every " + std::to_string(minutes / (24 * 60)) + " days"
                                : "every " + std::to_string(minutes) + " minutes";
}

std::string Meaning(const Key& key, const RulingFile& file, const std::optional<std::string>& value) {
    const std::string about = key.about;
    switch (key.form) {
        case Form::Version:
            return about;
        case Form::Period:
            return PeriodSeconds(value.value_or("")) == 0 ? "never " + about + (value ? ": no period" : "")
                                                          : about + " " + PeriodText(*value);
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

// For the keys that have one, when it comes to bear.
Due NextOf(const Key& key, const RulingFile& file, const std::optional<std::string>& value) {
    if (key.form == Form::Period) {
        return NextDue(key.timer, value);
    }
    if (value && key.form == Form::Days) {
        const std::int64_t next = NextCollectDay(*file.Number(key.name));
        return next == 0 ? Due{std::nullopt, "collects today"} : Due{next, "pauses until " + DateText(next)};
    }
    if (value && key.form == Form::Months) {
        const std::optional<std::int64_t> end = CollectsUntil(*file.Number(key.name));
        return end ? Due{end, "until " + DateText(*end)} : Due{};
    }
    return {};
}

std::string Trimmed(std::string line) {
    return line.erase(line.find_last_not_of(' ') + 1) + "\n";
}

void PrintSettings(bool asJson) {
    CheckMachine();
    const RulingFile file = FindRulingFile();
    const std::wstring server = ReadRegString(kLocalMachine, kProductKey, L"BGSERVER_URL");
    const bool defaultServer = server == ERROR_READREG;
    const std::string host = ReadableText(defaultServer ? deployment::DefaultServer : WideToUtf8(server));

    Json keys = Json::object();
    std::string table;
    for (const Key& key : kKeys) {
        const std::optional<std::string> value = file.Text(key.name);
        const std::string meaning = Meaning(key, file, value), shown = ReadableText(value.value_or("(absent)"));
        const Due due = NextOf(key, file, value);
        keys[key.name] = {{"value", value ? Json(ReadableText(*value, false)) : Json(nullptr)},
                          {"meaning", meaning},
                          {"next", due.at ? Json(*due.at) : Json(nullptr)},
                          {"nextInWords", due.words}};
        table += Trimmed(FitTo(key.name, 18) + FitTo(shown, 16) + FitTo(meaning, 48) + due.words);
    }
    const bool none = file.path.empty();
    const std::string heldBack = HeldBack(file);
    if (asJson) {
        Json all = {{"file", none ? Json(nullptr) : Json(ReadableText(file.path, false))},
                    {"why", ReadableText(file.why, false)},
                    {"server", host},
                    {"defaultServer", defaultServer},
                    {"heldBack", heldBack}};
        all["keys"] = none ? Json::object() : keys;
        return Print(DumpJson(all) + "\n");
    }
    Print((none ? "" : "file    " + ReadableText(file.path) + "\n") + "rules   " + ReadableText(file.why) + "\n" +
          "server  " + host + (defaultServer ? ", the built-in one" : ", named in BGSERVER_URL") + "\n");
    Print(none ? "" : "\n" + table);
    Print(heldBack.empty() ? "" : "\nCollecting and sending are held back: " + heldBack + ".\n");
}

}  // namespace

void AddSettingsCommand(CLI::App& app) {
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* settings = app.add_subcommand("settings", "Says which settings rule, why, and what they mean");
    settings->add_flag("--json", *asJson, "As JSON, times in seconds since 1970");
    settings->callback([asJson] { PrintSettings(*asJson); });
}

}  // namespace zorvalis
