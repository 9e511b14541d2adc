// Reads the machine's facts in the order of a pass and asks the service's own rules what they mean.
#include "facts.h"

#include <stdexcept>
#include <string_view>

#include "base/number.h"
#include "base/text.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "jobs/product_activation.h"
#include "jobs/schedule_predicates.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/module.h"
#include "settings/period_codes.h"

namespace zorvalis {

namespace {

std::wstring ModulePath() {
    wchar_t path[4096];
    return {path, static_cast<std::size_t>(platform::module_file_name(path, 4096))};
}

std::wstring ProductValue(const wchar_t* name) {
    return ReadRegString(kLocalMachine, kProductKey, name);
}

constexpr const TimerName& kDownloadTimer = kTimerNames.back();

// What stands where the number parser raised an error.
std::string Unread(const std::logic_error& error) {
    return dynamic_cast<const std::out_of_range*>(&error) != nullptr ? "a number out of range" : "no number";
}

// What a rule makes of a number that the service keeps in the registry.
template <class Rule>
auto Parsed(const wchar_t* value, Rule rule) {
    try {
        return rule(ProductValue(value));
    } catch (const std::logic_error& error) {
        const std::string name = WideToUtf8(value);
        const bool ofDownload = value == std::wstring_view(kDownloadTimer.value);
        throw Failure{"the registry's " + name + " is " + Unread(error) +
                      (ofDownload ? ", and no settings are downloaded" : ", and every pass fails on it") +
                      "; mend it with `zorvctl registry delete product " + name + "`"};
    }
}

Json Load(const SettingFileManager& manager, const char* name, const std::string& path) {
    try {
        return manager.LoadJsonFile(name);
    } catch (const std::exception& error) {
        throw Failure{path + " is no JSON, and every pass ends on it: " + error.what()};
    }
}

std::string Why(const RulingFile& file, const std::wstring& mainSwitch, const std::string& stored) {
    switch (file.ruling) {
        case Ruling::stored:
            return "the server's, since it is for this version of the service";
        case Ruling::default_off:
            return "the default, since the user has switched it off";
        case Ruling::default_none_stored:
            return platform::file_exists(stored) ? "the default, since the server's cannot be read"
                                                 : "the default, since none from the server is stored";
        case Ruling::default_no_version:
            return "the default, since the server's has no version";
        case Ruling::default_other_version:
            return "the default, since the server's is for version " + file.version;
        default:
            return "none: a main switch of \"" + WideToUtf8(mainSwitch) +
                   "\" is neither on nor off, so no pass loads any; a running service keeps what it has";
    }
}

// Reads the setting file that a pass would load. Raises a Failure when it is broken, or when default.json is missing.
RulingFile ReadRulingFile(const std::wstring& mainSwitch) {
    // The manager finds default.json by cutting the service's name of 22 characters off the module path.
    std::wstring module = ModulePath();
    module.resize(module.find_last_of(L"/\\") + 1);
    platform::set_module_path(module + std::wstring(22, L'x'));

    const SettingFileManager manager;
    const std::string stored = platform::native_path(std::string(kProductFolder) + "setting.json");
    RulingFile file;
    file.path = stored;
    if (IsOn(MainSwitchOf(mainSwitch))) {
        file.tree = Load(manager, "setting.json", stored);
        file.Text("version");
    }
    file.ruling = ChooseRuling(MainSwitchOf(mainSwitch), file.tree, file.version);
    file.why = Why(file, mainSwitch, stored);
    if (file.ruling == Ruling::none) {
        file.path = "";
    } else if (file.ruling != Ruling::stored) {
        file.path = OwnFolder() + "/default.json";
        file.tree = Load(manager, "default.json", file.path);
        Require(!file.tree.is_null(),
                file.path + " should rule (" + file.why + ") but is missing: no pass does anything");
    }
    for (const wchar_t* word : kJobWord) {
        file.Text(NarrowBytes(word));  // as the service does: a wrong type anywhere makes the file broken
    }
    return file;
}

Due DueOf(const RulingFile& file, const TimerName& name, std::int64_t now) {
    const std::int32_t period = PeriodSeconds(file.Text(name.setting).value_or(""));
    if (period == 0) {
        return {std::nullopt, "never"};
    }
    const RegTimer timer = Parsed(name.value, [&](const std::wstring& text) { return TimerAt(text, now, period); });
    const std::string time = LocalTimeText(static_cast<double>(timer.next)).substr(0, 16);
    return {timer.next,
            timer.state == TimerState::first ? "at the next pass, for the first time"
            : timer.IsDue()                  ? "at the next pass, due since " + time
                                             : "in " + SpanText(timer.next - now) + ", " + time,
            timer.state};
}

// Reads in the order of a pass, so that the obstacles stand in that order too.
class Reader {
public:
    Facts Read() {
        facts_.now = platform::now_seconds();
        facts_.mainSwitch = ProductValue(L"MainSwitch");
        facts_.imageState = ReadRegString(kLocalMachine, kSetupStateKey, L"ImageState");
        facts_.made = StoredManufacturingDate();
        Try([&] { facts_.file = ReadRulingFile(facts_.mainSwitch); });
        ReadHardware();
        Check(IsOn(MainSwitchOf(facts_.mainSwitch)), "the user has switched it off");
        ReadAge();
        if (facts_.file) {
            ReadTimer(kDownloadTimer);
            const Due& download = facts_.due[kDownloadTimer.setting];
            bySettings_ = download.at && *download.at <= facts_.now ? "by the present settings, " : "";
            Try([&] { ReadPeriod(); });
            Try([&] { ReadDay(); });
            for (const TimerName& name : kTimerNames) {
                ReadTimer(name);
            }
        }
        return std::move(facts_);
    }

private:
    void Check(bool open, const std::string& otherwise, bool broken = false) {
        if (!open) {
            facts_.obstacles.push_back({broken, ReadableText(otherwise)});
        }
    }

    template <class Reading>
    void Try(Reading reading) {
        try {
            reading();
        } catch (const Failure& failure) {
            Check(false, failure.text, true);
            facts_.fault = facts_.fault.empty() ? failure.text : facts_.fault;
        }
    }

    void ReadHardware() {
        ZorvWinIoDll hardware(false);  // writes no event log
        const std::wstring chassis = ChassisText(hardware);
        activation_ = ActivationText(hardware);
        Check(IsCollectingChassis(chassis),
              chassis.empty() ? "the hardware library is missing or does not name the kind of computer, and without "
                                "that nothing is collected"
                              : "this is a \"" + WideToUtf8(chassis) + "\", and only a \"Notebook\" collects");
        Check(activation::IsDeviceClassAllowed(), "product activation bars this class of device");
    }

    void ReadAge() {
        const std::wstring& date = facts_.made.text;
        std::string unread;
        try {
            facts_.age = date.empty() ? std::nullopt : std::optional(AgeInSeconds(date));
        } catch (const std::logic_error& error) {
            unread = Unread(error);
        }
        if (ImageStateOf(facts_.imageState) != ImageState::complete) {
            Check(false, "the system's setup is not complete");
        } else if (date.empty()) {
            Check(false, "there is no date of manufacture: the first pass sets one and waits a week");
        } else if (!facts_.age) {
            Check(false,
                  "the date of manufacture, " + WideToUtf8(date) + ", holds " + unread + ", and every pass fails on it",
                  true);
        } else {
            Check(IsOlderThanAWeek(*facts_.age), "the machine is no older than a week");
        }
    }

    void ReadPeriod() {
        const std::optional<std::int32_t> months = facts_.file->Number("totalCollectTime");
        if (!months) {
            return Check(false, "the present settings have no totalCollectTime");
        }
        std::optional<std::uint64_t> start = ActivationTicks(activation_);
        if (!start) {
            start = ManufacturingTicks(NarrowBytes(facts_.made.text));
        }
        const CollectPeriod period = PeriodAt(start, *months, platform::now_ticks());
        if (period.state == PeriodState::no_start && facts_.made.source == DateSource::none) {
            return;  // a pass sets a date first
        }
        // A start in the future counts as one of long ago, and so does a date that the calendar does not have.
        const bool ends = period.state == PeriodState::within || period.state == PeriodState::over;
        const std::int64_t end = ends ? period.until : facts_.now;
        facts_.due["totalCollectTime"] = {end, "until " + DateText(end)};
        Check(!period.IsOver(),
              bySettings_ + "the " + std::to_string(*months) + " months in which a machine collects are over");
    }

    void ReadDay() {
        const std::optional<std::int32_t> pause = facts_.file->Number("intervalTimer");
        if (!pause) {
            return Check(false, "the present settings have no intervalTimer");
        }
        const std::int64_t last = Parsed(L"lastDojobTime", LastDojobTime);
        const auto at = [&](std::int64_t time) { return DojobDayOfPass(*pause, last, MidnightBefore(time), time); };
        const DojobDay day = at(facts_.now);
        if (day.IsToday()) {
            facts_.due["intervalTimer"] = {std::nullopt, "collects today"};
            return;
        }
        // No do-job day begins in the 25th hour of a calendar day: the next midnight may begin one.
        const std::int64_t next = at(day.next).IsToday() ? day.next : MidnightBefore(day.next + 3600);
        facts_.due["intervalTimer"] = {next, "pauses until " + DateText(next)};
        Check(false, bySettings_ + "this is a day of pause: the next pass that collects is on " + DateText(next));
    }

    // No collection depends on the download's.
    void ReadTimer(const TimerName& name) {
        try {
            facts_.due[name.setting] = DueOf(*facts_.file, name, facts_.now);
        } catch (const Failure& failure) {
            facts_.due[name.setting] = {std::nullopt, failure.text};
            Check(&name == &kDownloadTimer, failure.text, true);
        }
    }

    Facts facts_;
    std::string activation_, bySettings_;
};

}  // namespace

std::string OwnFolder() {
    const std::wstring path = ModulePath();
    return WideToUtf8(path.substr(0, path.find_last_of(L"/\\")));
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
    } catch (const std::logic_error& error) {
        throw Failure{path + " holds " + Unread(error) + " under " + key +
                      ", and by the present settings no pass collects anything"};
    }
}

std::string MainSwitchText(const std::wstring& value) {
    const MainSwitch state = MainSwitchOf(value);
    return state == MainSwitch::never_asked ? "never set, so on"
           : IsOn(state)                    ? "on"
                                            : "off, \"" + WideToUtf8(value) + "\"";
}

Facts ReadFacts() {
    return Reader().Read();
}

}  // namespace zorvalis
