// The setting file that rules what is collected, how often and for how long: "setting.json", stored from the server's
// answer, or "default.json" beside the executable when there is no stored one, when it is of another version of the
// service, and while the main switch is off. A member of JobManager.
//
// A load publishes a new snapshot of the settings; a reader keeps the one it took. The job thread and the service's
// reload loop may load at the same time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/json.h"

namespace zorvalis {

struct HttpReport;
class ZorvWinIoDll;

// The job keys in the order of their indices: four timed kinds, whose value is a period code, then seven events, which
// are on when their value is the key's own word.
inline constexpr std::size_t kJobWords = 11;
inline constexpr std::array<const wchar_t*, kJobWords> kJobWord = {
    L"thermal", L"battery_power",  L"systeminfo", L"upload",         L"poweronoff", L"suspend_resume",
    L"ac_dc",   L"lid_open_close", L"quiet_fan",  L"battery_health", L"wmi_event",
};

// The control keys beside "downloadSetting": the service's version that the file is for, days of pause after a day of
// collecting, and the months after which collecting ends.
inline constexpr char kVersionSetting[] = "version";
inline constexpr char kPauseSetting[] = "intervalTimer";
inline constexpr char kMonthsSetting[] = "totalCollectTime";

struct Settings {
    std::array<std::wstring, kJobWords> jobValues;  // Kept: a value stays when a later file does not have its key
    Json tree;                                      // the file loaded last, null at first; for the control keys
};

// What the user's main switch says; never asked when the registry value is missing.
enum class MainSwitch { never_asked, on, off, other };
MainSwitch MainSwitchOf(const std::wstring& text);

// Which file rules, and why. With a switch that is neither on nor off none is loaded: what was loaded stays.
enum class Ruling { stored, none, default_off, default_none_stored, default_no_version, default_other_version };

// `stored` is the stored file's tree, null without one; it is only looked at with the switch on. `version` is what it
// says, if it says one. Raises for a version that is no text.
Ruling ChooseRuling(MainSwitch mainSwitch, const Json& stored, std::string& version);

class SettingFileManager {
public:
    // The present snapshot, from any thread.
    std::shared_ptr<const Settings> Current() const;

    // Decides which file rules and loads it. Kept: a stored file that is not JSON, or has a value that is not a text,
    // throws (std::invalid_argument, std::domain_error) instead of giving way to the default file.
    void ReloadSettingFile();

    // Asks the server for a new setting file, stores it and loads it. 0 for success, -1 for any refusal: the stored
    // file stays, unless the server said that there is none for this machine, which deletes it. Throws as
    // ReloadSettingFile does for an answer that is not JSON or has values of a wrong type.
    std::int32_t UpdateSettingFile();

    // The second half of UpdateSettingFile: what to do with the server's answer.
    std::int32_t TakeAnswer(const Json& answer);

    // The server's answer; the JSON number 0 when the server could not be reached.
    Json GetSettingFileFromServer() const;

    // The machine's model name from the hardware library, by which the server chooses the file; empty without one.
    std::string GetModelName() const;

    // One of the two files by its name, parsed; null when it cannot be read. Throws std::invalid_argument for a file
    // that is not JSON.
    Json LoadJsonFile(const std::string& name) const;

    // Writes the stored file in place and makes its folders. A failure is not reported: the next load sees the old file
    // or none, but never half of one.
    void SaveSettingFile(const std::string& text) const;
    void RemoveSettingFile() const;

private:
    // What one load found. What is empty leaves the present settings as they are.
    struct Loaded {
        std::array<std::optional<std::wstring>, kJobWords> jobValues;
        std::optional<Json> tree;
    };

    static bool StoredFileRules(MainSwitch mainSwitch, const Json& tree);
    static void LoadJobValues(Loaded& loaded);
    void Publish(const Loaded& loaded);
    void AskForReload() const;

    mutable std::mutex mutex_;
    std::shared_ptr<const Settings> current_ = std::make_shared<const Settings>();
    const std::string settingFileName_ = "setting.json";
    const std::string defaultFileName_ = "default.json";
};

// The text under a key of the file. False when the tree does not have the key; throws std::domain_error for a value
// that is not a text.
bool FindSettingText(const Json& tree, const std::string& key, std::string& text);

// The query of GetSettingFileFromServer alone: the answer's body, or kTransportError.
std::string QuerySettings(const std::string& server, const std::string& model, HttpReport* report = nullptr);
std::string ModelName(ZorvWinIoDll& library);

// Why a document of the server's is refused, as the line that is logged; null when it is stored. Throws
// std::domain_error for a "downloadSetting" that is not a text.
const char* WhyRefused(const Json& tree);

}  // namespace zorvalis
