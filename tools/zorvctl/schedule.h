// What a pass on this machine goes by: the setting file that rules, the timers and dates of the registry. Nothing is
// changed. Failures are in words and say what a pass makes of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/json.h"

namespace zorvalis {

// Where the service, the hardware library and default.json lie too.
std::string OwnFolder();

// "23 minutes", "5 hours", "3 days".
std::string SpanText(std::int64_t seconds);

// "2026/11/12" in local time.
std::string DateText(std::int64_t seconds);

// Local midnight of a date with slashes, in seconds since 1970; -1 for anything else.
std::int64_t ParseDate(const std::string& text);

// Empty when the value is missing.
std::string ReadText(const wchar_t* key, const wchar_t* value);

// Why the machine is not ready by its setup and its date of manufacture; empty when it is.
std::string NotReady();

struct RulingFile {
    std::string path;  // empty when the main switch keeps every file from being loaded
    std::string why;
    Json tree;

    // Nothing for a key that is absent. Both raise a Failure for a value of the wrong kind, since a pass ends there.
    std::optional<std::string> Text(const std::string& key) const;
    std::optional<std::int32_t> Number(const std::string& key) const;
};

// Raises a Failure for a broken file, and when there is no default to fall back to.
RulingFile FindRulingFile();

// When collecting ends for good, from a time of activation in the firmware or else the date of manufacture; nothing
// when there is neither yet, as on a machine that no pass has looked at.
std::optional<std::int64_t> CollectsUntil(std::int32_t months);

// Why that is over, empty when it is not.
std::string CollectingIsOver(std::int32_t months);

// The user's switch as a pass takes it: "never set, so on", "on", or "off" and the text.
bool IsSwitchedOn();
std::string MainSwitchText();

// The first second of the next day of collecting after a pause, 0 when it is today.
std::int64_t NextCollectDay(std::int32_t pauseDays);

// 0 for a text that is no period code.
std::int32_t PeriodSeconds(const std::string& code);

struct Due {
    std::optional<std::int64_t> at;  // nothing: never
    std::string words;
};
Due NextDue(const wchar_t* timer, const std::optional<std::string>& code);

// What keeps timed work from being done although it is due; empty when nothing does.
std::string HeldBack(const RulingFile& file);

}  // namespace zorvalis
