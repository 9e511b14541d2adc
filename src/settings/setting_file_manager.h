// The setting file that rules what is collected, how often and for how long: the stored one, or "default.json" beside
// the executable when the stored one is missing, stale or switched off. A member of JobManager.
//
// A load replaces the present settings as one snapshot; readers keep the one they took. Loads may come from the job
// thread and from the reload loop at once.
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

// The job keys in the order of their indices: four timed kinds, then seven events.
inline constexpr std::size_t kJobWords = 11;
inline constexpr std::array<const wchar_t*, kJobWords> kJobWord = {
    L"thermal", L"battery_power",  L"systeminfo", L"upload",         L"poweronoff", L"suspend_resume",
    L"ac_dc",   L"lid_open_close", L"quiet_fan",  L"battery_health", L"wmi_event",
};

struct Settings {
    std::array<std::wstring, kJobWords> jobValues;  // a value outlives a load that does not mention its key
    Json tree;                                      // the tree last loaded, null at first
};

class SettingFileManager {
public:
    std::shared_ptr<const Settings> Current() const;

    // Decides which file rules and loads it. Raises the JSON library's errors for a broken or wrongly typed file.
    void ReloadSettingFile();

    // Asks the server for a new setting file, and stores and loads it. 0, or -1 for any refusal, in which the stored
    // file stays, unless the server drops it. Raises the JSON library's errors for an answer that is no JSON or has
    // values of a wrong type.
    std::int32_t UpdateSettingFile();

    // The same, once the server has answered.
    std::int32_t TakeAnswer(const Json& answer);

    // The server's answer; the JSON number 0 stands for none.
    Json GetSettingFileFromServer() const;
    std::string GetModelName() const;

    // The parsed file, null when it cannot be read. Raises std::invalid_argument for a file that does not parse.
    Json LoadJsonFile(const std::string& name) const;

    // Writes the stored file in place, with its folders. A failure is silent: the next load sees the old file or none,
    // never a part of one.
    void SaveSettingFile(const std::string& text) const;
    void RemoveSettingFile() const;

private:
    // What one load found.
    struct Loaded {
        std::array<std::optional<std::wstring>, kJobWords> jobValues;
        std::optional<Json> tree;
    };

    static bool StoredFileRules(const Json& tree);
    static void LoadJobValues(Loaded& loaded);
    void Publish(const Loaded& loaded);
    void AskForReload() const;

    mutable std::mutex mutex_;
    std::shared_ptr<const Settings> current_ = std::make_shared<const Settings>();
    const std::string settingFileName_ = "setting.json";
    const std::string defaultFileName_ = "default.json";
};

// The text under a control key. False when the tree has no such key; raises for a value that is no string.
bool FindSettingText(const Json& tree, const std::string& key, std::string& text);

}  // namespace zorvalis
