// Reads the machine's facts in the order of a pass and asks the service's own rules what they mean.
#include "facts.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "base/number.h"
#include "base/text.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/time.h"
#include "common/wide_to_utf8.h"
#include "host.h"
#include "jobs/product_activation.h"
#include "jobs/schedule_predicates.h"
#include "output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/library.h"
#include "platform/machine.h"
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
            return platform::file_exists(stored) ? "the default, since the server's cannot be read or holds nothing"
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
        file.path = OwnFile("default.json");
        file.tree = Load(manager, "default.json", file.path);
        Require(!file.tree.is_null(),
                file.path + " should rule (" + file.why + ") but is missing: no pass does anything");
    }
    return file;
}

Due DueOf(const RulingFile& file, const TimerName& name, std::int64_t now) {
    const std::int32_t period = PeriodSeconds(file.Text(name.setting).value_or(""));
    if (period == 0) {
        return {std::nullopt, "never"};
    }
    const RegTimer timer = Parsed(name.value, [&](const std::wstring& text) { return TimerAt(text, now, period); });
    const std::string time = MinuteText(timer.next);
    return {timer.next,
            timer.state == TimerState::first ? "at the next pass, for the first time"
            : timer.IsDue()                  ? "at the next pass, due since " + time
                                             : "in " + SpanText(timer.next - now) + ", " + time,
            timer.state, period};
}

std::string DeleteCommand(const std::string& path) {
    return platform::machine_folder().empty() ? "`del \"" + path + "\"`" : "`rm '" + path + "'`";
}

std::string SetCommand(const char* keyAndValue, const char* text) {
    return "`zorvctl registry set " + std::string(keyAndValue) + " " + text + "`";
}

std::string DeleteTimer(const wchar_t* value) {
    return "`zorvctl registry delete product " + WideToUtf8(value) + "`";
}

// Why the stand-in library cannot read its hardware.json; empty when it can, and on Windows.
std::string HardwareProblem() {
    const std::string machine = platform::machine_folder();
    std::string path = machine + "/hardware.json";
    path = platform::file_exists(path) ? path : OwnFile("hardware.json");
    try {
        machine.empty() ? Json() : ParseJson(ReadWholeFile(path));
    } catch (const Failure& failure) {
        return failure.text;
    } catch (const std::exception& error) {
        return path + " is no JSON: " + error.what();
    }
    return "";
}

constexpr std::int64_t kWeek = 7 * 86400;
constexpr std::int64_t kPatience = 86400;  // a timer that is later than its period by more counts as dead
constexpr char kMendServer[] = "publish other settings at the server";
constexpr char kMendDefault[] = "install default.json beside the service again";
constexpr char kMadeValue[] = "SOFTWARE/Zorv/FactoryConfig ManufacturingDate";

// What the rules go by, so that they can be asked about a time to come.
struct Rules {
    std::int64_t madeAt = 0, last = 0;
    std::optional<std::int32_t> months, pause;
    std::optional<std::uint64_t> start;
    std::int64_t now = platform::now_seconds();  // kept, since looking ahead asks many thousand times
    std::uint64_t nowTicks = platform::now_ticks();

    // Asked in the order of the passes, since a pass moves the do-job day on.
    PassAhead Ask(std::int64_t time) {
        if (!months || !pause) {
            return {};
        }
        const std::int64_t midnight = MidnightBefore(time);
        const DojobState before = DojobDayAt(*pause, last, time).state;
        const bool today = DojobDayOfPass(*pause, last, midnight, time).IsToday();
        if (before == DojobState::first || before == DojobState::begins) {
            last = midnight;
        }
        const auto later = static_cast<std::uint64_t>(time - now);
        const bool old = IsOlderThanAWeek(static_cast<double>(time - madeAt));
        const bool over = PeriodAt(start, *months, nowTicks + later * kTicksPerSecond).IsOver();
        return {today && old && !over, old && !today};
    }
};

// Adds the links between the service and the data folder, those that the rules judge.
class Reader {
public:
    explicit Reader(Facts& facts) : facts_(facts) {}

    void Read() {
        facts_.mainSwitch = ProductValue(L"MainSwitch");
        facts_.imageState = ReadRegString(kLocalMachine, kSetupStateKey, L"ImageState");
        facts_.made = StoredManufacturingDate();
        const std::vector<std::string> broken = LoadSettings();
        ReadHardware();
        ReadRegistry();
        ReadSwitch();
        ReadAge();
        if (facts_.file && facts_.file->ruling != Ruling::none) {
            Try("period", [&] { ReadPeriod(); });
            Try("day", [&] { ReadDay(); });
        }
        ReadSettings(broken);
        if (facts_.file) {
            for (const TimerName& name : kTimerNames) {
                ReadTimer(name);
            }
            BreakDeadKinds();
        }
        facts_.ahead = [rules = rules_](std::int64_t time) mutable { return rules.Ask(time); };
    }

private:
    void Add(const char* name, LinkState state, const std::string& why, const std::string& mend = "",
             bool passes = false) {
        facts_.links.push_back({name, state, ReadableText(why), ReadableText(mend), passes});
    }

    template <class Reading>
    void Try(const char* name, Reading reading) {
        try {
            reading();
        } catch (const Failure& failure) {
            const std::size_t command = failure.text.find("; mend it with ");
            Add(name, LinkState::broken, failure.text.substr(0, command),
                command == std::string::npos ? MendSettings() : failure.text.substr(command + 15));
            facts_.fault = facts_.fault.empty() ? failure.text : facts_.fault;
        }
    }

    // What is broken, each key by itself: a wrong type anywhere ends every pass, as the service reads them all.
    std::vector<std::string> LoadSettings() {
        std::vector<std::string> broken;
        const auto note = [&](auto reading) {
            try {
                reading();
            } catch (const Failure& failure) {
                broken.push_back(failure.text);
            }
        };
        note([&] { facts_.file = ReadRulingFile(facts_.mainSwitch); });
        if (facts_.file) {
            for (const wchar_t* word : kJobWord) {
                note([&] { facts_.file->Text(NarrowBytes(word)); });
            }
        }
        if (!broken.empty()) {
            facts_.fault = broken[0];
            facts_.file.reset();
        }
        return broken;
    }

    void ReadHardware() {
        const platform::SharedLibrary library(kHardwareLibrary);
        ZorvWinIoDll hardware(false);  // writes no event log
        const std::wstring chassis = ChassisText(hardware);
        activation_ = ActivationText(hardware);
        const bool windows = platform::machine_folder().empty();
        std::string file = OwnFile(windows ? "ZorvWinIo64.dll" : "ZorvWinIo64.so");
        if (windows && !platform::file_exists(file)) {
            file = "C:\\Windows\\System32\\ZorvWinIo64.dll";  // beside the executable a removal would leave it behind
        }
        const std::string problem = HardwareProblem();
        const bool there = platform::file_exists(file);
        Add("library", library.is_open() ? LinkState::held : LinkState::broken,
            library.is_open() ? "the hardware library opens"
            : there           ? "the hardware library cannot be loaded, damaged or for another processor: " + file
                              : "the hardware library is missing: " + file,
            library.is_open() ? "" : "copy the library of the machine's maker to " + file);
        const std::string word = WideToUtf8(chassis);
        if (chassis.empty() && library.is_open() && !HasAllRights()) {
            Add("chassis", LinkState::unknown, "the hardware library answers administrators only",
                "run `zorvctl status` as administrator");
        } else {
            const bool collects = IsCollectingChassis(chassis) && problem.empty();
            Add("chassis", collects ? LinkState::held : LinkState::broken,
                !problem.empty()  ? problem
                : chassis.empty() ? "no library names the kind of computer, and without that nothing is collected"
                : collects        ? "this is a \"" + word + "\""
                                  : "this is a \"" + word + "\", and only a \"Notebook\" collects",
                collects || platform::machine_folder().empty() || !library.is_open()
                    ? ""
                    : "set \"WMIGetSystemChassisTypes\": \"Notebook\" in hardware.json");
        }
        if (!activation::IsDeviceClassAllowed()) {
            Add("activation", LinkState::broken, "product activation bars this class of device");
        }
        const bool complete = ImageStateOf(facts_.imageState) == ImageState::complete;
        Add("set-up", complete ? LinkState::held : LinkState::broken,
            complete ? "Windows is set up"
                     : "Windows' own setup is not complete: its state is " +
                           (ImageStateOf(facts_.imageState) == ImageState::missing
                                ? "not set"
                                : "\"" + WideToUtf8(facts_.imageState) + "\""),
            complete  ? ""
            : windows ? "go through Windows' own setup to its end"
                      : SetCommand("SOFTWARE/Microsoft/Windows/CurrentVersion/Setup/State ImageState",
                                   "IMAGE_STATE_COMPLETE"));
    }

    // A pass that cannot write a timer takes its kind for not due. The service may write all of Windows' registry.
    void ReadRegistry() {
        std::string key = platform::machine_folder() + "/registry/HKEY_LOCAL_MACHINE/SOFTWARE/Zorv/Zorvcore/Zorvalis";
        while (!platform::folder_exists(key) && !platform::file_exists(key) && key.find('/', 1) != key.npos) {
            key.erase(key.rfind('/'));
        }
        if (!platform::machine_folder().empty() && MayWriteIn(key) == false) {
            Add("registry", LinkState::broken, key + " cannot be written, and no timer can be set",
                "`chmod u+rwx '" + key + "'`, as its owner");
        }
    }

    void ReadSwitch() {
        const bool on = IsOn(MainSwitchOf(facts_.mainSwitch));
        Add("switch", on ? LinkState::held : LinkState::broken,
            on ? MainSwitchText(facts_.mainSwitch)
               : "the user has switched it off: MainSwitch is \"" + WideToUtf8(facts_.mainSwitch) + "\"",
            on ? "" : "if the user wants it: `zorvctl registry set product MainSwitch 1`");
    }

    void ReadAge() {
        const std::wstring& date = facts_.made.text;
        if (date.empty()) {
            rules_.madeAt = MidnightBefore(FirstPass());  // which writes its day's date
            return Add("made", LinkState::broken,
                       "there is no date of manufacture: the first pass sets one and waits a week",
                       SetCommand(kMadeValue, "YEAR/MONTH/DAY"), true);
        }
        const bool factory = facts_.made.source == DateSource::factory;
        const std::string made = WideToUtf8(date) + (factory ? ", the factory's date" : ", the service's substitute");
        try {
            facts_.age = AgeInSeconds(date);
        } catch (const std::logic_error& error) {
            return Add("made", LinkState::broken,
                       "the date of manufacture, " + WideToUtf8(date) + ", holds " + Unread(error) +
                           ", and every pass fails on it",
                       MendDate());
        }
        rules_.madeAt = facts_.now - static_cast<std::int64_t>(*facts_.age);
        const bool old = IsOlderThanAWeek(*facts_.age);
        const std::string ready = MinuteText(rules_.madeAt + kWeek);
        Add("made", old ? LinkState::held : LinkState::broken,
            old ? made + ", " + std::to_string(static_cast<std::int64_t>(*facts_.age) / 86400) + " days ago"
                : "the machine is no older than a week: made " + made + "; it collects from " + ready + " on",
            old ? "" : "wait until then, or correct the date: " + SetCommand(kMadeValue, "YEAR/MONTH/DAY"), true);
    }

    void ReadPeriod() {
        rules_.months = facts_.file->Number("totalCollectTime");
        if (!rules_.months) {
            return Add("period", LinkState::broken, "the present settings have no totalCollectTime", MendSettings());
        }
        const std::optional<std::uint64_t> activated = ActivationTicks(activation_);
        rules_.start = activated ? activated : ManufacturingTicks(NarrowBytes(facts_.made.text));
        const CollectPeriod period = PeriodAt(rules_.start, *rules_.months, platform::now_ticks());
        const bool bad = !activated && HoldsActivation(activation_) && !activation_.empty();
        const std::string from =
            activated ? "its activation, " + activation_ + ", which wins over the date of manufacture"
            : bad     ? "its date of manufacture, since its activation, \"" + activation_ + "\", is no time"
                      : "its date of manufacture";
        if (period.state == PeriodState::no_start && facts_.made.source == DateSource::none) {
            rules_.start = ManufacturingTicks(DateText(FirstPass()));
            return Add("period", LinkState::held, "begins with the date of manufacture");
        }
        // A start in the future counts as one of long ago, and so does a date that the calendar does not have.
        const bool ends = period.state == PeriodState::within || period.state == PeriodState::over;
        const std::int64_t end = ends ? period.until : facts_.now;
        facts_.due["totalCollectTime"] = {end, "until " + DateText(end)};
        const std::string months = std::to_string(*rules_.months) + " months";
        Add("period", period.IsOver() ? LinkState::broken : LinkState::held,
            !period.IsOver() ? months + " from " + from + ": until " + DateText(end)
                             : BySettings() + "the " + months + " in which a machine collects are over" +
                                   (period.state == PeriodState::future     ? ", since they begin only in the future"
                                    : period.state == PeriodState::no_start ? ", since they begin on no day"
                                                                            : "") +
                                   ": they count from " + from,
            !activated && !ends ? MendDate() : "", period.state == PeriodState::future);
    }

    void ReadDay() {
        rules_.pause = facts_.file->Number("intervalTimer");
        if (!rules_.pause) {
            return Add("day", LinkState::broken, "the present settings have no intervalTimer", MendSettings());
        }
        rules_.last = Parsed(L"lastDojobTime", LastDojobTime);
        const auto at = [&](std::int64_t time) {
            return DojobDayOfPass(*rules_.pause, rules_.last, MidnightBefore(time), time);
        };
        const DojobDay day = at(facts_.now);
        if (day.IsToday()) {
            facts_.due["intervalTimer"] = {std::nullopt, "collects today"};
            return Add("day", LinkState::held,
                       "collects today; days of pause thereafter: " + std::to_string(*rules_.pause));
        }
        // No do-job day begins in the 25th hour of a calendar day: the next midnight may begin one.
        const std::int64_t next = at(day.next).IsToday() ? day.next : MidnightBefore(day.next + 3600);
        facts_.due["intervalTimer"] = {next, "pauses until " + DateText(next)};
        const bool far = next - facts_.now > (std::int64_t{*rules_.pause} + 2) * 86400;
        Add("day", LinkState::broken,
            BySettings() + "this is a day of pause: the next pass that collects is on " + DateText(next) +
                (far ? ", since lastDojobTime lies in the future" : ""),
            far ? "`zorvctl registry delete product lastDojobTime`" : "wait: it goes on by itself", !far);
    }

    void ReadSettings(const std::vector<std::string>& broken) {
        const std::string stored = platform::native_path(std::string(kProductFolder) + "setting.json");
        for (const std::string& each : broken) {
            Add("settings", LinkState::broken, each,
                each.starts_with(stored) ? DeleteCommand(stored) + ", then restart the service" : kMendDefault);
        }
        if (!facts_.file) {
            return;
        }
        const RulingFile& file = *facts_.file;
        const bool unread = file.ruling == Ruling::default_none_stored && platform::file_exists(stored) &&
                            !platform::open_file(stored, "rb");
        const bool link = HasLink(std::string(kProductFolder) + "setting.json");
        const bool ignored = file.ruling == Ruling::default_other_version || file.ruling == Ruling::default_no_version;
        Add("settings",
            file.ruling == Ruling::none ? LinkState::broken
            : unread                    ? (link ? LinkState::warning : LinkState::unknown)
            : ignored                   ? LinkState::warning
                                        : LinkState::held,
            (file.path.empty() ? "" : file.path + ": ") + file.why +
                (file.ruling == Ruling::stored ? ", version " + file.version : ""),
            file.ruling == Ruling::none ? "`zorvctl registry set product MainSwitch 1`, or 0"
            : unread                    ? link ? DeleteCommand(stored) : "ask as somebody who may read " + stored
            : ignored ? "the next download brings others, or `zorvctl registry delete product getSettingFile`"
                      : "");
    }

    // No collection depends on the download's.
    void ReadTimer(const TimerName& name) {
        const bool download = &name == &kDownloadTimer, kind = &name < &kTimerNames[kTimedKinds - 1];
        std::string mend = DeleteTimer(name.value);
        try {
            const Due due = facts_.due[name.setting] = DueOf(*facts_.file, name, facts_.now);
            const std::optional<std::string> value = facts_.file->Text(name.setting);
            const bool future = due.timer == TimerState::future;
            const bool dead =
                !due.at || (future && *due.at - facts_.now > PeriodSeconds(value.value_or("")) + kPatience);
            if (dead && kind) {
                facts_.dead.insert(name.setting);
            }
            const bool loaded = facts_.file->ruling != Ruling::none;
            const std::string why = future    ? ": its timer " + WideToUtf8(name.value) + " lies in the future"
                                    : due.at  ? ""
                                    : !loaded ? ": no settings are loaded"
                                    : value   ? ": \"" + *value + "\" is no period"
                                              : ": the settings have no such key";
            const std::string stored = platform::native_path(std::string(kProductFolder) + "setting.json");
            Add(name.setting, dead || future ? LinkState::warning : LinkState::held, due.words + why,
                future                                              ? mend
                : due.at || !loaded                                 ? ""
                : download && facts_.file->ruling == Ruling::stored ? DeleteCommand(stored)
                                                                    : kMendServer);
        } catch (const Failure& failure) {
            facts_.due[name.setting] = {std::nullopt, failure.text};
            const std::size_t command = failure.text.find("; mend it with ");
            mend = command == std::string::npos ? MendSettings() : mend;
            Add(name.setting, download ? LinkState::warning : LinkState::broken, failure.text.substr(0, command), mend);
        }
    }

    // One dead kind among live ones is a warning; when none lives, nothing is collected.
    void BreakDeadKinds() {
        for (Link& link : facts_.links) {
            if (facts_.dead.size() == kTimedKinds - 1 && facts_.dead.count(link.name) != 0) {
                link.state = LinkState::broken;
                link.samplesOnly = true;
                link.passes = facts_.due[link.name].at.has_value();
            }
        }
    }

    std::string MendDate() const {
        return facts_.made.source == DateSource::factory ? SetCommand(kMadeValue, "YEAR/MONTH/DAY")
                                                         : "`zorvctl registry delete product FakeManufacturingDate`";
    }

    // What mends the file that rules.
    std::string MendSettings() const {
        return facts_.file && facts_.file->ruling == Ruling::stored ? kMendServer : kMendDefault;
    }

    std::int64_t FirstPass() const { return std::max(facts_.now, facts_.firstStart); }

    // A download comes before the collection and may bring other settings.
    std::string BySettings() const {
        try {
            const Due due = DueOf(*facts_.file, kDownloadTimer, facts_.now);
            return due.at && *due.at <= facts_.now ? "by the present settings, " : "";
        } catch (const Failure&) {
            return "";
        }
    }

    Facts& facts_;
    std::string activation_;
    Rules rules_;
};

}  // namespace

std::string OwnFile(const char* name) {
    const std::wstring path = ModulePath();
    return WideToUtf8(path.substr(0, path.find_last_of(L"/\\") + 1)) + name;
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

std::string MinuteText(std::int64_t seconds) {
    return LocalTimeText(static_cast<double>(seconds)).substr(0, 16);
}

const char* WordOf(LinkState state) {
    constexpr const char* kWords[] = {"held", "warning", "broken", "unknown"};
    return kWords[static_cast<std::size_t>(state)];
}

std::string Facts::HeldBack() const {
    const auto found = std::find_if(links.begin(), links.end(), [](const Link& link) {
        return link.state == LinkState::broken && !link.samplesOnly;
    });
    return found == links.end() ? "" : found->why;
}

std::string MainSwitchText(const std::wstring& value) {
    const MainSwitch state = MainSwitchOf(value);
    return state == MainSwitch::never_asked ? "never set, so on"
           : IsOn(state)                    ? "on"
                                            : "off, \"" + WideToUtf8(value) + "\"";
}

Facts ReadFacts() {
    Facts facts;
    facts.now = platform::now_seconds();
    const std::string hidden = HiddenPart();
    Require(hidden.empty(), "this caller may not read " + hidden + ": ask as the machine's owner", 2);
    ReadStarts(facts);
    Reader(facts).Read();
    ReadFolder(facts);
    facts.verdict = Judge(facts);
    return facts;
}

}  // namespace zorvalis
