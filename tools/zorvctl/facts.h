// Whether a pass on this machine would collect and send by the present settings, and why not: reads the machine's facts
// without changing anything, and asks the service's own rules about them. The commands only print the result.
//
// Two things are not foreseen. A pass may download other settings before it collects. And a kind that is due stores no
// row once its table is full; the rows are not counted here.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "jobs/rules.h"

namespace zorvalis {

// The tool's folder, in which the service, the hardware library and default.json lie too.
std::string OwnFolder();

struct RulingFile {
    Ruling ruling = Ruling::none;
    std::string path;     // empty when no file is loaded
    std::string version;  // the server's file's, where the ruling depends on it
    std::string why;
    Json tree;

    // The value of a key; nothing when the key is absent. A value of the wrong kind ends a pass, so both raise a
    // Failure.
    std::optional<std::string> Text(const std::string& key) const;
    std::optional<std::int32_t> Number(const std::string& key) const;
};

// Why no pass stores or sends anything.
struct Obstacle {
    bool broken;        // every pass fails on it, until it is mended
    std::string words;  // fit for a person's eyes
};

// When a setting comes to bear next.
struct Due {
    std::optional<std::int64_t> at;  // seconds since 1970; nothing when never or unknown
    std::string words;
    std::optional<TimerState> timer = {};  // of a periodic setting whose stored time is a number, or missing
};

struct Facts {
    std::int64_t now = 0;
    std::wstring mainSwitch, imageState;
    ManufacturingDate made;
    std::optional<double> age;        // in seconds since `made`; nothing for a date whose numbers cannot be read
    std::optional<RulingFile> file;   // nothing for a broken one
    std::map<std::string, Due> due;   // by the key of the setting: the periodic ones, the pause and the end
    std::vector<Obstacle> obstacles;  // in the order in which a pass meets them
    std::string fault;                // what is broken about the settings or the stored day: little else can be told

    // What keeps timed work from being done although it is due: the first obstacle, empty when there is none.
    std::string HeldBack() const { return obstacles.empty() ? "" : obstacles[0].words; }
};

Facts ReadFacts();

// The user's switch as a pass takes it: "never set, so on", "on", or "off" and the text.
std::string MainSwitchText(const std::wstring& value);

}  // namespace zorvalis
