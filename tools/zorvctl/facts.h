// The one reader of the machine: walks what a pass depends on, link by link, without changing anything, and asks the
// service's own rules what each finding means. The commands only print the result.
//
// One thing is not foreseen: a pass that is due to download settings may take others before it collects.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "jobs/rules.h"

namespace zorvalis {

// The path of a file in the tool's folder, where the service, the hardware library and default.json lie too.
std::string OwnFile(const char* name);

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

// held:    nothing in the way.
// warning: samples are stored all the same; something else suffers.
// broken:  the next pass with something to do stores nothing.
// unknown: this caller lacks the rights to tell.
enum class LinkState { held, warning, broken, unknown };

struct Link {
    std::string name;
    LinkState state = LinkState::held;
    std::string why;           // fit for a person's eyes
    std::string mend = {};     // the command, or what to do; may be empty
    bool passes = false;       // a broken one that time alone mends
    bool samplesOnly = false;  // the upload goes on
};

// When a setting comes to bear next.
struct Due {
    std::optional<std::int64_t> at;  // seconds since 1970; nothing when never or unknown
    std::string words;
    std::optional<TimerState> timer = {};  // of a periodic setting whose stored time is a number, or missing
    std::int32_t period = 0;               // of it, in seconds
};

// What the rules say of a pass to come.
struct PassAhead {
    bool collects = false;
    bool putsOff = false;  // it finds the do-job day over, and puts the task off to the first hour of the next day
};

// What comes of all links.
struct Verdict {
    int code = 2;                      // 0: collecting goes on by itself; 1: it does not; 2: it cannot be told
    std::optional<std::int64_t> next;  // the next pass that stores something, as far as it can be foreseen
    std::string words;                 // one sentence
};

struct Facts {
    std::int64_t now = 0;
    std::wstring mainSwitch, imageState;
    ManufacturingDate made;
    std::optional<double> age;       // in seconds since `made`; nothing for a date whose numbers cannot be read
    std::optional<RulingFile> file;  // nothing for a broken one
    std::string fault;               // what is broken about the settings or the stored day: little else can be told

    std::map<std::string, Due> due;  // by the key of the setting: the periodic ones, the pause and the end
    std::set<std::string> full;      // of the kinds of samples, those whose table takes no more rows this month
    std::set<std::string> dead;      // and those that never come due, or not for long
    std::int64_t firstStart = 0, interval = 0;     // of the task that starts passes; 0 without one
    std::function<PassAhead(std::int64_t)> ahead;  // asks the rules; call it in the order of the passes

    std::vector<Link> links;  // from the service to the record files, in the order in which they are told
    Verdict verdict;

    // What keeps timed work from being done although it is due: the first broken link that holds for the upload too,
    // empty when there is none.
    std::string HeldBack() const;
};

Facts ReadFacts();

// Parts of the walk, each of which adds its links.
void ReadStarts(Facts& facts);  // the service, and the task that starts passes
void ReadFolder(Facts& facts);  // the data folder and its files
void ReadServer(Facts& facts);  // the way to the server, by one request without content; not part of ReadFacts
Verdict Judge(const Facts& facts);

// The user's switch as a pass takes it: "never set, so on", "on", or "off" and the text.
std::string MainSwitchText(const std::wstring& value);

// "2026-11-12 09:08", in local time.
std::string MinuteText(std::int64_t seconds);

// "held", "warning", "broken", "unknown".
const char* WordOf(LinkState state);

}  // namespace zorvalis
