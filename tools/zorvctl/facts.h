// What decides whether a pass on this machine collects and sends: the machine's facts, read without changing anything,
// and what the service's own rules make of them. The commands only print from it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "jobs/rules.h"

namespace zorvalis {

// Where the service, the hardware library and default.json lie too.
std::string OwnFolder();

struct RulingFile {
    Ruling ruling = Ruling::none;
    std::string path;     // empty when no file is loaded
    std::string version;  // the server's file's, where the ruling depends on it
    std::string why;
    Json tree;

    // Nothing for a key that is absent. Both raise a Failure for a value of the wrong kind, since a pass ends there.
    std::optional<std::string> Text(const std::string& key) const;
    std::optional<std::int32_t> Number(const std::string& key) const;
};

// The links of the chain from a pass to a row and a sent file, in the order in which a pass meets them.
enum class Link { settings, chassis, deviceClass, mainSwitch, setup, week, period, day, timers };

// A link that lets nothing through: it holds work back as it should, or it is broken and every pass fails on it.
struct Obstacle {
    Link link;
    bool broken;
    std::string words;  // fit for a person's eyes
};

// When a setting comes to bear next.
struct Due {
    std::optional<std::int64_t> at;  // nothing: never, or not to be told
    std::string words;
    std::optional<TimerState> timer;  // of a periodic setting whose stored time is a number, or missing
};

struct Facts {
    std::int64_t now = 0;
    std::optional<std::wstring> chassis;  // nothing without a hardware library
    std::wstring mainSwitch, imageState;
    ManufacturingDate made;
    std::optional<double> age;            // in seconds since `made`; nothing for a date without numbers
    std::optional<RulingFile> file;       // nothing for a broken one
    std::optional<CollectPeriod> period;  // these two: nothing without their setting, or for one that is no number
    std::optional<DojobDay> day;
    std::map<std::string, Due> due;  // by the key of the setting: the periodic ones, the pause and the end
    std::vector<Obstacle> obstacles;
    std::string fault;  // what is broken about the settings or the stored day, so that little can be said of them

    // What keeps timed work from being done although it is due: the first obstacle, empty when there is none.
    std::string HeldBack() const { return obstacles.empty() ? "" : obstacles[0].words; }
};

Facts ReadFacts();

// The user's switch as a pass takes it: "never set, so on", "on", or "off" and the text.
std::string MainSwitchText(const std::wstring& value);

}  // namespace zorvalis
