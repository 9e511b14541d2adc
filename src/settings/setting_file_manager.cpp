// Which file rules, loading it, and the stored file on disk. The download is in setting_download.cpp.
#include "settings/setting_file_manager.h"

#include <array>
#include <cstdint>
#include <utility>

#include "base/text.h"
#include "common/files.h"
#include "common/log.h"
#include "common/registry.h"
#include "common/version.h"
#include "platform/files.h"

namespace zorvalis {

MainSwitch MainSwitchOf(const std::wstring& text) {
    return text == ERROR_READREG ? MainSwitch::never_asked
           : text == L"1"        ? MainSwitch::on
           : text == L"0"        ? MainSwitch::off
                                 : MainSwitch::other;
}

Ruling ChooseRuling(MainSwitch mainSwitch, const Json& stored, std::string& version) {
    if (mainSwitch == MainSwitch::off || mainSwitch == MainSwitch::other) {
        return mainSwitch == MainSwitch::off ? Ruling::default_off : Ruling::none;
    }
    return stored.is_null()                                     ? Ruling::default_none_stored
           : !FindSettingText(stored, kVersionSetting, version) ? Ruling::default_no_version
           : version != kServiceVersion                         ? Ruling::default_other_version
                                                                : Ruling::stored;
}

std::shared_ptr<const Settings> SettingFileManager::Current() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return current_;
}

void SettingFileManager::ReloadSettingFile() {
    LogMessage("[SettingFileManager] ReloadSettingFile");
    const MainSwitch mainSwitch = MainSwitchOf(ReadRegString(kLocalMachine, kProductKey, L"MainSwitch"));
    Loaded loaded;
    try {
        if (mainSwitch == MainSwitch::off) {
            LogMessage("[SettingFileManager][ReloadSettingFile] Main Switch turn off.");
            loaded.tree = LoadJsonFile(defaultFileName_);
            LoadJobValues(loaded);
        } else if (mainSwitch != MainSwitch::other) {  // Kept: any other text loads nothing
            loaded.tree = LoadJsonFile(settingFileName_);
            if (!StoredFileRules(mainSwitch, *loaded.tree)) {
                loaded.tree = LoadJsonFile(defaultFileName_);
            }
            LoadJobValues(loaded);
        }
    } catch (...) {
        Publish(loaded);  // Kept: what was loaded before the error counts
        throw;
    }
    Publish(loaded);
    LogMessage("[SettingFileManager] get settingfile end");
}

void SettingFileManager::Publish(const Loaded& loaded) {
    const std::lock_guard<std::mutex> guard(mutex_);
    auto settings = std::make_shared<Settings>(*current_);
    if (loaded.tree) {
        settings->tree = *loaded.tree;
    }
    for (std::size_t index = 0; index < kJobWords; ++index) {
        if (loaded.jobValues[index]) {
            settings->jobValues[index] = *loaded.jobValues[index];
        }
    }
    current_ = std::move(settings);
}

// An update of the service makes the stored file stale until the next download. The default file's version is never
// compared.
bool SettingFileManager::StoredFileRules(MainSwitch mainSwitch, const Json& tree) {
    LogMessage(tree.is_null() ? "[SettingFileManager][ReloadSettingFile] settingfile == NULL Get default file"
                              : "[SettingFileManager][ReloadSettingFile] check current setting Json");
    std::string version;
    const Ruling ruling = ChooseRuling(mainSwitch, tree, version);
    if (ruling == Ruling::default_no_version) {
        LogMessage("[SettingFileManager] current Setting file version Err get default json ");
    } else if (ruling != Ruling::default_none_stored) {
        LogMessage("[SettingFileManager][ReloadSettingFile] get version : " + version);
    }
    if (ruling == Ruling::default_other_version) {
        LogMessage(
            "[SettingFileManager][ReloadSettingFile] current Setting version != service version, Get default json ");
    }
    return ruling == Ruling::stored;
}

void SettingFileManager::LoadJobValues(Loaded& loaded) {
    for (std::size_t index = 0; index < kJobWords; ++index) {
        try {
            std::string value;
            if (FindSettingText(*loaded.tree, NarrowBytes(kJobWord[index]), value)) {
                loaded.jobValues[index] = WidenBytes(value);
            }
        } catch (std::uint32_t code) {  // Kept: a Windows error number only; a value that is not a text ends the load
            ReportServiceEvent(L"SettingFileManager::ReloadSettingFile Fail", kWarning);
            LogMessage("[SettingFileManagerget] json err" + std::to_string(code));
        }
    }
}

Json SettingFileManager::LoadJsonFile(const std::string& name) const {
    std::string path;
    if (name == settingFileName_) {
        path = kProductFolder + name;
        path = HasLink(path) ? "" : path;  // a link could lead to a file that another user wrote
    } else if (name == defaultFileName_) {
        const std::string folder = getCurrentPath();
        path = folder.empty() ? "" : folder + name;  // the bare name would open the file in the current folder
    }
    const platform::File file = platform::open_file(path, "rb");
    if (file == nullptr) {
        return nullptr;
    }
    std::string text;
    std::array<char, 4096> piece{};
    while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), file.get())) {
        text.append(piece.data(), length);
    }
    return ParseJson(text);
}

void SettingFileManager::SaveSettingFile(const std::string& text) const {
    const std::string path = kProductFolder + settingFileName_;
    if (platform::is_link(path)) {
        platform::remove_file(path);  // the link, so that what it leads to is not overwritten
    }
    if (RefusesLink(path)) {
        return;
    }
    CreateFolders({"C:\\ProgramData\\", "C:\\ProgramData\\Zorv\\", "C:\\ProgramData\\Zorv\\Zorvcore\\", kProductFolder},
                  nullptr);
    platform::replace_text(path, text);
}

void SettingFileManager::RemoveSettingFile() const {
    if (!HasLink(kProductFolder)) {  // the file itself may be a link, which is then deleted
        platform::remove_file(kProductFolder + settingFileName_);
    }
}

bool FindSettingText(const Json& tree, const std::string& key, std::string& text) {
    const auto found = tree.find(key);
    if (found == tree.end()) {
        return false;
    }
    text = found->get<std::string>();
    return true;
}

}  // namespace zorvalis
