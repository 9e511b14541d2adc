#include "schedule.h"

#include <chrono>
#include <cstdio>
#include <ctime>

#include "base/number.h"
#include "base/text.h"
#include "collection/zorv_win_io_dll.h"
#include "common/code_page.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/time.h"
#include "common/version.h"
#include "common/wide_to_utf8.h"
#include "jobs/schedule_predicates.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/library.h"
#include "platform/module.h"
#include "settings/period_codes.h"
#include "settings/setting_file_manager.h"

namespace zorvalis {

namespace {

constexpr std::int32_t kDay = 86400;

std::wstring ModulePath() {
    wchar_t path[4096];
    return {path, static_cast<std::size_t>(platform::module_file_name(path, 4096))};
}

// A time that the service keeps in the registry.
std::optional<std::int64_t> StoredTime(const wchar_t* value) {
    const std::wstring text = ReadRegString(kLocalMachine, kProductKey, value);
    try {
        return text == ERROR_READREG ? std::nullopt : std::optional(ParseInt64(text));
    } catch (const std::exception&) {
        const std::string name = WideToUtf8(value);
        throw Failure{"the registry's " + name + " is no number, and every pass fails on it; mend it with `zorvctl " +
                      "registry delete product " + name + "`"};
    }
}

Json Load(const SettingFileManager& manager, const char* name, const std::string& path) {
    try {
        return manager.LoadJsonFile(name);
    } catch (const std::exception& error) {
        throw Failure{path + " is no JSON, and every pass ends on it: " + error.what()};
    }
}

RulingFile ChooseFile() {
    // The manager finds default.json by cutting the service's name of 22 characters off the module path.
    std::wstring module = ModulePath();
    module.resize(module.find_last_of(L"/\\") + 1);
    platform::set_module_path(module + std::wstring(22, L'x'));

    const SettingFileManager manager;
    RulingFile file;
    const std::wstring mainSwitch = ReadRegString(kLocalMachine, kProductKey, L"MainSwitch");
    if (mainSwitch == L"0") {
        file.why = "the default, since the user has switched it off";
    } else if (!MainSwitchIsOn(mainSwitch)) {
        file.why = "none: a main switch of \"" + WideToUtf8(mainSwitch) +
                   "\" is neither on nor off, so no pass loads any; a running service keeps what it has";
        return file;
    } else {
        file.path = platform::native_path(std::string(kProductFolder) + "setting.json");
        file.tree = Load(manager, "setting.json", file.path);
        const std::optional<std::string> version = file.Text("version");
        if (version == kServiceVersion) {
            file.why = "the server's, since it is for this version of the service";
            return file;
        }
        file.why = !platform::file_exists(file.path) ? "the default, since none from the server is stored"
                   : !version                        ? "the default, since the server's has no version"
                                                     : "the default, since the server's is for version " + *version;
    }
    file.path = OwnFolder() + "/default.json";
    file.tree = Load(manager, "default.json", file.path);
    Require(!file.tree.is_null(), file.path + " should rule (" + file.why + ") but is missing: no pass does anything");
    return file;
}

}  // namespace

std::string OwnFolder() {
    const std::wstring path = ModulePath();
    return WideToUtf8(path.substr(0, path.find_last_of(L"/\\")));
}

std::string SpanText(std::int64_t seconds) {
    const std::int64_t minutes = (seconds + 59) / 60;
    const auto count = [](std::int64_t number, const char* unit) {
        return std::to_string(number) + unit + (number == 1 ? "" : "s");
    };
    return minutes < 120       ? count(minutes, " minute")
           : minutes < 48 * 60 ? count(minutes / 60, " hour")
                               : count(minutes / (24 * 60), " day");
}

std::string DateText(std::int64_t seconds) {
    std::string text = LocalTimeText(static_cast<double>(seconds)).substr(0, 10);
    text[4] = text[7] = '/';
    return text;
}

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
    return platform::local_seconds(date);
}

std::string ReadText(const wchar_t* key, const wchar_t* value) {
    std::wstring data;
    return platform::read_registry_string(kLocalMachine, key, value, data) ? WideToUtf8(data) : "";
}

std::string NotReady() {
    if (!isImageStateComplete()) {
        return "the system's setup is not complete";
    }
    const std::wstring date = StoredManufacturingDate();
    if (date.empty()) {
        return "there is no date of manufacture: the first pass sets one and waits a week";
    }
    try {
        return IsOlderThanAWeek(AgeInSeconds(date)) ? "" : "the machine is no older than a week";
    } catch (const std::exception&) {
        return "the date of manufacture, " + WideToUtf8(date) + ", holds no numbers, and every pass fails on it";
    }
}

std::optional<std::string> RulingFile::Text(const std::string& key) const {
    try {
        std::string text;
        return FindSettingText(tree, key, text) ? std::optional(text) : std::nullopt;
    } catch (const std::exception&) {
        throw Failure{path + " holds no text under " + key + ", and a pass fails on it"};
    }
}

std::optional<std::int32_t> RulingFile::Number(const std::string& key) const {
    const std::optional<std::string> text = Text(key);
    try {
        return text ? std::optional(ParseInt32(*text)) : std::nullopt;
    } catch (const std::exception&) {
        throw Failure{path + " holds no number under " + key + ", and no pass collects anything"};
    }
}

RulingFile FindRulingFile() {
    RulingFile file = ChooseFile();
    for (const wchar_t* word : kJobWord) {
        file.Text(NarrowBytes(word));  // the service takes them all while it loads the file
    }
    return file;
}

std::optional<std::int64_t> CollectsUntil(std::int32_t months) {
    constexpr std::int64_t kFrom1601 = 11644473600;
    // Asked once, and only when it is there: the product would report a missing one.
    static const std::optional<std::uint64_t> activated =
        platform::SharedLibrary(kHardwareLibrary).is_open() ? ActivationTime() : std::nullopt;
    const std::wstring date = StoredManufacturingDate();
    const std::optional<std::uint64_t> start = activated ? activated : ManufacturingTime(date);
    if (!start) {  // a date that the calendar does not have counts as one of long ago
        return date.empty() ? std::nullopt : std::optional(platform::now_seconds());
    }
    const auto seconds = static_cast<std::int64_t>(*start / kTicksPerSecond) - kFrom1601;
    // A start in the future counts as one of long ago.
    return seconds > platform::now_seconds() ? platform::now_seconds() : seconds + CollectSeconds(months);
}

std::string CollectingIsOver(std::int32_t months) {
    const std::optional<std::int64_t> end = CollectsUntil(months);
    return end && *end <= platform::now_seconds()
               ? "the " + std::to_string(months) + " months in which a machine collects are over"
               : "";
}

bool IsSwitchedOn() {
    return MainSwitchIsOn(ReadRegString(kLocalMachine, kProductKey, L"MainSwitch"));
}

std::string MainSwitchText() {
    const std::wstring value = ReadRegString(kLocalMachine, kProductKey, L"MainSwitch");
    return value == ERROR_READREG ? "never set, so on" : IsSwitchedOn() ? "on" : "off, \"" + WideToUtf8(value) + "\"";
}

std::int64_t NextCollectDay(std::int32_t pauseDays) {
    const std::int64_t last = StoredTime(L"lastDojobTime").value_or(0);
    const std::int64_t next = WrapAdd(last, std::int64_t{WrapMultiply(pauseDays, kDay)} + kDay);
    const std::int64_t now = platform::now_seconds();
    return last == 0 || WrapSubtract(now, last) < kDay || now >= next ? 0 : next;
}

std::int32_t PeriodSeconds(const std::string& code) {
    for (const PeriodCode& period : kPeriodCodes) {
        if (period.code == code) {
            return period.seconds;
        }
    }
    return 0;
}

Due NextDue(const wchar_t* timer, const std::optional<std::string>& code) {
    const std::int32_t period = PeriodSeconds(code.value_or(""));
    if (period == 0) {
        return {std::nullopt, "never"};
    }
    try {
        const std::int64_t now = platform::now_seconds();
        const std::optional<std::int64_t> last = StoredTime(timer);
        const std::int64_t at = last ? WrapAdd(*last, period) : now;
        const std::string time = LocalTimeText(static_cast<double>(at)).substr(0, 16);
        return {at, !last       ? "at the next pass, for the first time"
                    : at <= now ? "at the next pass, due since " + time
                                : "in " + SpanText(at - now) + ", " + time};
    } catch (const Failure& failure) {
        return {std::nullopt, failure.text};
    }
}

std::string HeldBack(const RulingFile& file) {
    if (!IsSwitchedOn()) {
        return "the user has switched it off";
    }
    if (const std::string problem = NotReady(); !problem.empty()) {
        return problem;
    }
    const std::optional<std::int32_t> pause = file.Number("intervalTimer"), months = file.Number("totalCollectTime");
    if (!pause || !months) {
        return std::string("the settings have no ") + (pause ? "totalCollectTime" : "intervalTimer");
    }
    if (const std::string over = CollectingIsOver(*months); !over.empty()) {
        return over;
    }
    const std::int64_t next = NextCollectDay(*pause);
    return next == 0 ? "" : "this is a day of pause: the next pass that collects is on " + DateText(next);
}

}  // namespace zorvalis
