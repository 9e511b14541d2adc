// `zorvctl columns`: prints docs/columns.md. The words of every column stand here, and what the catalogue says about it
// (type, source, how it is read) is taken from there.
#include "columns.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "base/number.h"
#include "collection/metric_catalogue.h"
#include "collection/triggers.h"
#include "commands.h"
#include "database_reader.h"
#include "settings/period_codes.h"

namespace zorvalis {

namespace {

constexpr CollectionKind kKinds[] = {CollectionKind::Battery_Power, CollectionKind::SysInfo, CollectionKind::Thermal,
                                     CollectionKind::UserBehavior};

// A column of one name means the same in every table. What 0, -1 and NULL mean follows from how the column is read
// (kReadings), unless it stands here.
struct Words {
    const char *column, *meaning, *unit = "", *zero = nullptr, *minusOne = nullptr, *null = nullptr;
};

constexpr const char *kNotRead = "zero, or not read", *kNotReadOff = "off, or not read",
                     *kNotThisEvent = "another event made the row", *kAlwaysNull = "always: nothing fills it";

constexpr Words kWords[] = {
    {"local_time", "when the sample was taken", "local time"},
    {"freq", "why it was taken: the trigger", "see above", "timed, by a period without a number (d7)"},
    {"guid", "the UUID that the service gave the machine; the same in all its rows", "", nullptr, nullptr,
     "no UUID could be had"},

    {"full_capacity", "what the battery holds when it is full", "mWh"},
    {"current_capacity", "what it holds now", "mWh"},
    {"charging_voltage", "voltage at which it is charged", "mV"},
    {"cyclecount", "charge cycles so far", "cycles", "a new battery, or not read"},
    {"cellvoltages", "voltage of each cell, one after the other", "mV"},
    {"current", "current of the battery, negative while it empties", "mA", "idle, or not read",
     "1 mA out of the battery, or the hardware library failed"},
    {"temperature", "temperature of the battery", "°C"},
    {"ac_dc", "1 on mains", "", "on battery, or not read"},
    {"current_batteryhealth_mode", "up to how much the battery is charged: 100, 80 or 60", "%", "not read",
     "the hardware library failed, or knows no such mode"},
    {"acfet", "temperature of the transistor behind the mains plug", "°C"},
    {"charger_choke", "temperature of the charger's coil", "°C"},
    {"battery_connector", "temperature of the battery's connector", "°C"},
    {"vr_thermal_ch1", "temperature of the graphics processor's voltage regulator", "°C"},
    {"lid_status", "1 open", "", "closed, or not read"},
    {"quiet_fan_status", "1 quiet fan mode on", "", kNotReadOff},
    {"package_voltage", "voltage of the whole battery", "mV"},

    {"model_name", "the machine's model"},
    {"service_version", "version of the service that took the sample"},
    {"server_time", "kept for the server's time", "", nullptr, nullptr, kAlwaysNull},
    {"bios_version", "version of the firmware"},
    {"bios_releasedate", "date of the firmware, as the firmware writes it"},
    {"bios_family_name", "family of the machine's model"},
    {"bios_manufacturer", "maker of the firmware"},
    {"dimm_model", "model of the memory modules"},
    {"hdd_model", "model of the hard disks", "", nullptr, nullptr, "no hard disk, or not read"},
    {"ssd_model", "model of the solid-state disks", "", nullptr, nullptr, "no solid-state disk, or not read"},
    {"windows_version", "name and version of the operating system"},
    {"graphic_card_model", "model of the graphics processor"},
    {"cpu_info", "model of the processor"},
    {"disk_size", "size of each disk, one after the other", "in the text"},
    {"memory_size", "size of the memory", "in the text"},
    {"battery_manufacture_date", "when the battery was made"},
    {"battery_manufacture_name", "who made the battery"},
    {"battery_design_capacity", "what the battery held when it was new", "mWh"},
    {"uwp_app_list", "kept for a list of applications", "", nullptr, nullptr, kAlwaysNull},
    {"win32_x64_app_list", "kept for a list of applications", "", nullptr, nullptr, kAlwaysNull},
    {"win32_x86_app_list", "kept for a list of applications", "", nullptr, nullptr, kAlwaysNull},

    {"cpu_temp", "temperature of the processor", "°C"},
    {"gpu_temp", "temperature at the graphics processor", "°C"},
    {"board_temp", "temperature of the mainboard", "°C"},
    {"disk_temp", "temperature of each disk, one after the other", "°C"},
    {"cpu_usage", "load of the processor", "%", "no load, or not read"},
    {"max_pl1", "power that the processor may draw for long", "W"},
    {"max_pl2", "power that it may draw for a moment", "W"},
    {"rpm_fans", "speed of each fan, one after the other", "rpm"},
    {"package_power", "power that the processor draws", "W"},
    {"vr_thermal_ch2", "temperature of the processor's voltage regulator", "°C"},
    {"vr_thermal_ch3", "temperature of the graphics memory", "°C"},
    {"volume_level", "loudness of the speakers", "%", "mute, or not read"},
    {"brightness_level", "brightness of the display", "%", "dark, or not read"},
    {"panel_mode", "1 used as a tablet", "", "used as a notebook, or not read"},
    {"external_monitor", "how many external monitors are connected", "monitors", "none, or not read"},

    {"power_on", "when it was switched on", "local time"},
    {"power_off", "when it was switched off", "local time"},
    {"suspend", "when it went to sleep", "local time"},
    {"resume", "when it woke up", "local time"},
    {"battery_health_mode_change", "when the battery health mode was set", "local time"},
    {"battery_health_mode", "the mode that was set: 100, 80 or 60", "%", "not read",
     "the hardware library failed, or knows no such mode", kNotThisEvent},
    {"quiet_fan_on", "when quiet fan mode was switched on", "local time"},
    {"quiet_fan_off", "when quiet fan mode was switched off", "local time"},
    {"ac_in", "when the mains plug went in", "local time"},
    {"ac_out", "when the mains plug came out", "local time"},
    {"lid_open", "when the lid was opened", "local time"},
    {"lid_close", "when the lid was closed", "local time"},
    {"wmi1", "when the firmware told of the graphics processor (hardware event 154)", "local time"},
    {"wmi2", "when the firmware told of a connector (hardware event 155)", "local time"},
};

constexpr struct {
    std::int32_t trigger;
    const char* words;
} kTriggers[] = {
    {JOB_TRIGGER_POWER_ON, "power on"},
    {JOB_TRIGGER_POWER_OFF, "power off"},
    {JOB_TRIGGER_SUSPEND, "suspend"},
    {JOB_TRIGGER_RESUME, "resume"},
    {JOB_TRIGGER_AC_IN, "mains in"},
    {JOB_TRIGGER_AC_OUT, "mains out"},
    {JOB_TRIGGER_LID_OPEN, "lid opened"},
    {JOB_TRIGGER_LID_CLOSE, "lid closed"},
    {JOB_TRIGGER_QUIET_FAN_ON, "quiet fan on"},
    {JOB_TRIGGER_QUIET_FAN_OFF, "quiet fan off"},
    {JOB_TRIGGER_BATTERY_HEALTH_100, "battery health 100"},
    {JOB_TRIGGER_BATTERY_HEALTH_80, "battery health 80"},
    {JOB_TRIGGER_BATTERY_HEALTH_60, "battery health 60"},
    {JOB_TRIGGER_WMI_DGPU, "graphics event"},
    {JOB_TRIGGER_WMI_CONNECTOR, "connector event"},
};

// One column as the page and the JSON tell it. An empty text: the value cannot occur.
struct Told {
    std::string column, type, meaning, unit, source, zero, minusOne, null, allOnes;
};

Told Tell(const MetricRow& row) {
    Told told{row.columnName, row.typeWord, "", "", "", "", "", "", ""};
    switch (row.resultKind) {
        case 3:
        case 4:
            told.zero = kNotRead;
            told.allOnes = "the hardware library failed";
            break;
        case 7:
            told.zero = kNotRead;
            told.minusOne = "the hardware library failed";
            break;
        case 1:
        case 2:
            told.null = "not read";
            break;
        default:
            break;
    }
    for (const auto& event : EventColumns()) {
        const MetricCatalogue& catalogue = CatalogueOf(CollectionKind::UserBehavior);
        if (row.columnName == catalogue[static_cast<std::size_t>(event.second)].columnName) {
            told.null = kNotThisEvent;
        }
    }
    for (const Words& words : kWords) {
        if (row.columnName == words.column) {
            told.meaning = words.meaning;
            told.unit = words.unit;
            told.zero = words.zero != nullptr ? words.zero : told.zero;
            told.minusOne = words.minusOne != nullptr ? words.minusOne : told.minusOne;
            told.null = words.null != nullptr ? words.null : told.null;
        }
    }
    told.source = told.null == kAlwaysNull ? "" : row.functionName == "NA" ? "the service" : row.functionName;
    return told;
}

constexpr char kHead[] = R"(# The columns of the records

Made by `zorvctl columns`; `zorvctl columns --json` is the same for programs. How to look at records stands in
`docs/records.md`.

The service stores what the hardware library delivers, without a scale, an offset or a check. Units are therefore the
library's; those given here are the ones that its stand-in keeps to. A number that cannot be read (the library or its
function is missing) is stored as 0, so a 0 is never certain; a text that cannot be read is NULL. A library that fails
with all bits set leaves 4294967295 in an unsigned column and -1 in a signed one. An empty field below: the column never
holds that value. In a merged database NULL also stands where a file's table lacks the column.

`file` and `device` are no columns of the files: `zorvctl query` and `zorvctl show --sqlite` add them in front of each
table. `file` is the path. `device` is the records' own `guid`; in a file that has none, the device part of its name;
in a file of another name, its path.

## Triggers

The column `freq` says why a sample was taken. Timed samples carry the number of their period: m5 is every 5 minutes, d30
every 30 days.

| freq | Trigger |
|---|---|
)";

std::string Line(std::initializer_list<std::string> fields) {
    std::string line = "|";
    for (const std::string& field : fields) {
        line += field.empty() ? " |" : " " + field + " |";
    }
    return line + "\n";
}

std::string Code(const std::string& text) {
    return "`" + text + "`";
}

std::string Page() {
    std::string page = kHead;
    for (std::int32_t trigger = 0; trigger <= JOB_TRIGGER_WMI_CONNECTOR; ++trigger) {
        const std::string text = TriggerText(trigger), number = std::to_string(trigger);
        page += Line({number, text.substr(number.size() + 1)});
    }
    for (const CollectionKind kind : kKinds) {
        page += std::string("\n## ") + TableName(kind) + "\n\n" +
                Line({"Column", "Type", "Meaning", "Unit", "Source", "0", "-1", "NULL", "4294967295"}) +
                "|---|---|---|---|---|---|---|---|---|\n";
        for (const MetricRow& row : CatalogueOf(kind)) {
            const Told told = Tell(row);
            const bool call = row.functionName != "NA";
            page += Line({Code(told.column), told.type, told.meaning, told.unit, call ? Code(told.source) : told.source,
                          told.zero, told.minusOne, told.null, told.allOnes});
        }
    }
    return page;
}

}  // namespace

Json ColumnsAsJson() {
    Json all = Json::object();
    for (std::int32_t trigger = 0; trigger <= JOB_TRIGGER_WMI_CONNECTOR; ++trigger) {
        all["triggers"][std::to_string(trigger)] = TriggerText(trigger);
    }
    all["columns"] = Json::array();
    for (const CollectionKind kind : kKinds) {
        for (const MetricRow& row : CatalogueOf(kind)) {
            const Told told = Tell(row);
            all["columns"].push_back({{"table", TableName(kind)},
                                      {"column", told.column},
                                      {"type", told.type},
                                      {"meaning", told.meaning},
                                      {"unit", told.unit},
                                      {"source", told.source},
                                      {"0", told.zero},
                                      {"-1", told.minusOne},
                                      {"NULL", told.null},
                                      {"4294967295", told.allOnes}});
        }
    }
    return all;
}

std::string TriggerText(std::int64_t trigger) {
    for (const auto& each : kTriggers) {
        if (each.trigger == trigger) {
            return std::to_string(trigger) + " " + each.words;
        }
    }
    for (const PeriodCode& period : kPeriodCodes) {
        if (period.frequency == trigger) {
            return std::to_string(trigger) + " timed, " + std::string(period.code);
        }
    }
    return std::to_string(trigger);
}

void NameTriggers(Table& table) {
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
        for (Row& row : table.rows) {
            Cell& cell = row[column];
            if (LowerName(table.columns[column]) == "freq" && cell.type == SQLITE_INTEGER) {
                cell = {SQLITE_TEXT, TriggerText(std::stoll(cell.text))};
            }
        }
    }
}

void AddColumnsCommand(CLI::App& app) {
    const auto asJson = std::make_shared<bool>(false);
    CLI::App* columns = app.add_subcommand("columns", "Prints what each column of the records means, as Markdown");
    columns->add_flag("--json", *asJson, "As JSON");
    columns->callback([asJson] { Print(*asJson ? ColumnsAsJson().dump(2) + "\n" : Page()); });
}

}  // namespace zorvalis
