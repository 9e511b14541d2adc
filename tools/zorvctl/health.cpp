// `zorvctl health`: one line for each device, the worst first. What counts as worrying stands in kLimits alone.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <tuple>

#include "commands.h"
#include "records.h"
#include "table_view.h"

namespace zorvalis {

namespace {

// The measures, in the order of kLimits.
enum Measure { battery, cycles, cells, batteryTemperature, cpuTemperature, diskTemperature, stillFans, kMeasures };

struct Limit {
    const char *name, *heading, *unit;
    double watch, sick;  // the first value of each; a battery gets worse as its number falls
    const char* meaning;
};

constexpr std::size_t kLongestModel = 150;  // bytes, as much as the hardware library can give
constexpr double kHot = 80;                 // a fan that stands still at this temperature of the processor is counted
constexpr std::size_t kRecent = 20;         // samples whose median is the cell spread

constexpr std::array<Limit, kMeasures> kLimits = {{
    {"battery", "battery%", "%", 80, 60, "newest full charge against the design capacity"},
    {"cycles", "cycles", "", 500, 1000, "newest count of charge cycles"},
    {"cells", "cells mV", "mV", 50, 100, "highest less lowest cell voltage, the median of the newest 20 samples"},
    {"battery_temperature", "bat °C", "°C", 50, 60, "highest temperature of the battery"},
    {"cpu_temperature", "CPU °C", "°C", 95, 105, "highest temperature of the processor"},
    {"disk_temperature", "disk °C", "°C", 60, 70, "highest temperature of a disk"},
    {"still_fans", "still", "", 1, 3, "samples in which a fan stood still while the processor had 80 °C or more"},
}};

enum Level { none, fine, watch, sick };
constexpr const char* kLevels[] = {"no data", "fine", "watch", "sick"};

Level LevelOf(int measure, double value) {
    const Limit& limit = kLimits[static_cast<std::size_t>(measure)];
    const double sign = measure == battery ? -1 : 1;
    return sign * value >= sign * limit.sick ? sick : sign * value >= sign * limit.watch ? watch : fine;
}

// A number that the library really read: not negative, not all bits set, within `most`.
std::optional<double> Number(const Cell& cell, double most = 1e9) {
    const double value = std::strtod(cell.text.c_str(), nullptr);
    const bool number = cell.type == SQLITE_INTEGER || cell.type == SQLITE_FLOAT;
    return number && value >= 0 && value <= most ? std::optional(value) : std::nullopt;
}

// The whole numbers in a text such as "4071, 4066", at most eight of them.
std::vector<double> Numbers(const std::string& text) {
    std::vector<double> numbers;
    const char* at = text.c_str();
    while (numbers.size() < 8 && *(at += std::strcspn(at, "0123456789")) != '\0') {
        char* end = nullptr;
        numbers.push_back(std::strtod(at, &end));
        at = end;
    }
    return numbers;
}

// The value of the newest row that has one.
struct Newest {
    std::string time, text;
    double value = -1;

    void Take(const std::string& at, const std::string& words, double number) {
        if (value < 0 || at >= time) {
            *this = {at, words, number};
        }
    }
};

class Device {
public:
    void AddBattery(const Row& row) {
        const std::string& time = See(row);
        TakeNumber(full_, time, row[2]);
        TakeNumber(cycles_, time, row[3]);
        std::vector<double> voltages = Numbers(row[4].text);
        std::erase(voltages, 0);  // a place without a cell
        if (voltages.size() > 1) {
            const auto [low, high] = std::minmax_element(voltages.begin(), voltages.end());
            spreads_.emplace(time, *high - *low);
            if (spreads_.size() > kRecent) {
                spreads_.erase(spreads_.begin());
            }
        }
        Highest(batteryTemperature, Number(row[5], kHottest));
    }

    void AddSystem(const Row& row) {
        const std::string& time = See(row);
        if (row[2].type != SQLITE_NULL) {
            model_.Take(time, row[2].text, 0);
        }
        TakeNumber(design_, time, row[3]);
    }

    void AddThermal(const Row& row) {
        See(row);
        const std::optional<double> cpu = Number(row[2], kHottest);
        Highest(cpuTemperature, cpu);
        for (const double disk : Numbers(row[3].text)) {
            Highest(diskTemperature, disk <= kHottest ? std::optional(disk) : std::nullopt);
        }
        const std::vector<double> fans = Numbers(row[4].text);
        const bool hot = cpu.value_or(0) >= kHot;
        const bool all = std::count(fans.begin(), fans.end(), 0) == static_cast<std::ptrdiff_t>(fans.size());
        for (std::size_t i = 0; i < fans.size(); ++i) {
            turned_[i] |= fans[i] > 0;
            still_[i] += hot && fans[i] == 0 ? 1 : 0;
        }
        sawFans_ |= !fans.empty();
        allStill_ += hot && !fans.empty() && all ? 1 : 0;
    }

    // Works out what takes all rows, once they have been added.
    void Finish() {
        if (design_.value > 0 && full_.value >= 0) {
            values_[battery] = full_.value * 100 / design_.value;
        }
        if (cycles_.value >= 0) {
            values_[cycles] = cycles_.value;
        }
        if (!spreads_.empty()) {
            std::vector<double> sorted;
            for (const auto& [time, spread] : spreads_) {
                sorted.push_back(spread);
            }
            std::sort(sorted.begin(), sorted.end());
            values_[cells] = sorted[sorted.size() / 2];
        }
        if (sawFans_) {
            // A fan that never turned may be a place without one; but not all of them.
            int most = allStill_;
            for (std::size_t i = 0; i < still_.size(); ++i) {
                most = std::max(most, turned_[i] ? still_[i] : 0);
            }
            values_[stillFans] = most;
        }
        for (int i = 0; i < kMeasures; ++i) {
            if (std::optional<double>& value = values_[static_cast<std::size_t>(i)]) {
                value = std::floor(*value);  // as it is printed, so that number and state agree
                const Level each = LevelOf(i, *value);
                level_ = std::max(level_, each);
                points_ += each - fine;
            }
        }
    }

    Level State() const { return level_; }
    const std::string& Model() const { return model_.text; }
    const std::string& LastSeen() const { return lastSeen_; }
    const std::array<std::optional<double>, kMeasures>& Values() const { return values_; }

    // "battery 41 %; cells 110 mV", all that is worrying; empty for a device that is fine.
    std::string Why() const {
        std::string why;
        for (std::size_t i = 0; i < values_.size(); ++i) {
            const Level level = values_[i] ? LevelOf(static_cast<int>(i), *values_[i]) : none;
            if (level >= watch) {
                const Limit& limit = kLimits[i];
                std::string name = limit.name;
                std::replace(name.begin(), name.end(), '_', ' ');
                why += (why.empty() ? "" : "; ") + name + " " + Text(i) +
                       (*limit.unit != '\0' ? std::string(" ") + limit.unit : "");
            }
        }
        return why;
    }

    std::string Text(std::size_t measure) const { return std::to_string(static_cast<std::int64_t>(*values_[measure])); }

    // Whether this one is to be looked at before the other.
    bool WorseThan(const Device& other) const {
        const auto rank = [](const Device& device) {
            return std::tuple(device.level_, device.points_, -device.values_[battery].value_or(1e9));
        };
        return rank(*this) > rank(other);
    }

private:
    static constexpr double kHottest = 200;  // a higher number is no temperature

    const std::string& See(const Row& row) {
        lastSeen_ = std::max(lastSeen_, row[1].text);
        return row[1].text;
    }

    static void TakeNumber(Newest& newest, const std::string& time, const Cell& cell) {
        if (const auto number = Number(cell)) {
            newest.Take(time, "", *number);
        }
    }

    void Highest(Measure measure, std::optional<double> value) {
        if (value.value_or(0) > 0) {  // 0 may be "not read"
            values_[measure] = std::max(values_[measure].value_or(0), *value);
        }
    }

    std::string lastSeen_;
    Newest model_, design_, full_, cycles_;
    std::set<std::pair<std::string, double>> spreads_;
    std::array<bool, 8> turned_{};
    std::array<int, 8> still_{};
    bool sawFans_ = false;
    int allStill_ = 0;
    std::array<std::optional<double>, kMeasures> values_;
    Level level_ = none;
    int points_ = 0;
};

using Devices = std::vector<std::pair<std::string, Device>>;

std::map<std::string, Device> ReadDevices(const std::vector<std::string>& paths, std::size_t& bad) {
    std::map<std::string, Device> devices;
    const struct {
        const char* table;
        std::vector<std::string> columns;
        void (Device::*add)(const Row&);
    } kReads[] = {
        {"Battery_Power",
         {"device", "local_time", "full_capacity", "cyclecount", "cellvoltages", "temperature"},
         &Device::AddBattery},
        {"SysInfo", {"device", "local_time", "model_name", "battery_design_capacity"}, &Device::AddSystem},
        {"Thermal", {"device", "local_time", "cpu_temp", "disk_temp", "rpm_fans"}, &Device::AddThermal},
    };
    bad += VisitRecords(paths, [&](const RecordFile& file) {
        for (const auto& read : kReads) {
            ForEachRecord(file, read.table, read.columns,
                          [&](const Row& row) { (devices[row[0].text].*read.add)(row); });
        }
    });
    return devices;
}

Cell TextCell(const std::string& text) {
    return {text.empty() ? SQLITE_NULL : SQLITE_TEXT, text};
}

// For a person the identifiers are cut to eight characters, and the reasons follow the table.
Table AsTable(const Devices& devices, bool forPeople) {
    Table table{"Devices", {"state", "device"}, {}, devices.size()};
    if (!forPeople) {
        table.columns.insert(table.columns.end(), {"model", "last_seen"});
    }
    for (const Limit& limit : kLimits) {
        table.columns.emplace_back(forPeople ? limit.heading : limit.name);
    }
    if (!forPeople) {
        table.columns.emplace_back("why");
    }
    for (const auto& [name, device] : devices) {
        Row& row = table.rows.emplace_back();
        row.push_back(TextCell(kLevels[device.State()]));
        row.push_back(TextCell(forPeople && name.size() == 36 ? name.substr(0, 8) : name));
        if (!forPeople) {
            row.push_back(TextCell(device.Model()));
            row.push_back(TextCell(device.LastSeen()));
        }
        for (std::size_t i = 0; i < kLimits.size(); ++i) {
            row.push_back(device.Values()[i] ? Cell{SQLITE_INTEGER, device.Text(i)} : Cell{});
        }
        if (!forPeople) {
            row.push_back(TextCell(device.Why()));
        }
    }
    return table;
}

void PrintForPeople(const Devices& devices) {
    std::string text = ViewTable(AsTable(devices, true), TerminalView(true));
    const char* gap = "\n";
    for (const auto& [name, device] : devices) {
        if (device.State() >= watch) {
            text += gap + std::string(kLevels[device.State()]) + "  " + ReadableText(name) + "  " +
                    ReadableText(device.Model().substr(0, kLongestModel)) + "\n    " + device.Why() + "\n";
            gap = "";
        }
    }
    Print(text);
}

std::string LimitsPage() {
    std::string page = "| Measure | watch | sick | What it is |\n|---|---|---|---|\n";
    for (std::size_t i = 0; i < kLimits.size(); ++i) {
        const Limit& limit = kLimits[i];
        const auto bound = [&](double value) {
            return std::to_string(static_cast<int>(value)) + (*limit.unit != '\0' ? " " : "") + limit.unit +
                   (i == battery ? " or less" : " or more");
        };
        page += std::string("| `") + limit.name + "` | " + bound(limit.watch) + " | " + bound(limit.sick) + " | " +
                limit.meaning + " |\n";
    }
    return page;
}

struct HealthOptions {
    std::vector<std::string> files;
    bool csv = false, json = false, limits = false;
};

void Health(const HealthOptions& options) {
    if (options.limits) {
        return Print(LimitsPage());
    }
    RecordFiles files = FindRecords(options.files);
    std::map<std::string, Device> found = ReadDevices(files.paths, files.bad);
    for (auto& [name, device] : found) {
        device.Finish();
    }
    Devices devices(found.begin(), found.end());
    std::stable_sort(devices.begin(), devices.end(),
                     [](const auto& a, const auto& b) { return a.second.WorseThan(b.second); });
    if (options.json) {
        Print(TableAsJson(AsTable(devices, false)) + "\n");
    } else if (options.csv) {
        Print(TableAsCsv(AsTable(devices, false)));
    } else {
        PrintForPeople(devices);
    }
    Require(files.bad == 0, "");
}

}  // namespace

void AddHealthCommand(CLI::App& app) {
    const auto options = std::make_shared<HealthOptions>();
    CLI::App* health =
        app.add_subcommand("health", "Says of each device how battery, cells, temperatures and fans are, worst first");
    health->add_option("FILE", options->files, "Record files and folders; without any, those of the machine");
    CLI::Option* csv = health->add_flag("--csv", options->csv, "As comma-separated values; NULL is nothing");
    CLI::Option* json = health->add_flag("--json", options->json, "As JSON: an array of objects")->excludes(csv);
    health->add_flag("--limits", options->limits, "Prints what counts as worrying")->excludes(csv)->excludes(json);
    health->callback([options] { Health(*options); });
}

}  // namespace zorvalis
