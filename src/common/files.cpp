#include "common/files.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <iterator>
#include <vector>

#include "base/text.h"
#include "common/log.h"
#include "platform/files.h"
#include "platform/module.h"
#include "platform/text.h"

namespace zorvalis {
namespace {

// Whether Windows opens a device for the name. It does so in any folder and with any ending, and takes a superscript 1,
// 2 or 3 in "COM1" for the digit.
bool IsDevice(std::string_view name) {
    std::string stem(name.substr(0, name.find('.')));
    stem.erase(stem.find_last_not_of(' ') + 1);
    std::transform(stem.begin(), stem.end(), stem.begin(), [](unsigned char c) { return std::toupper(c); });
    const auto is = [](std::initializer_list<std::string_view> names, std::string_view one) {
        return std::find(names.begin(), names.end(), one) != names.end();
    };
    if (!is({"COM", "LPT"}, stem.substr(0, 3))) {
        return is({"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"}, stem);
    }
    return is({"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "\xC2\xB9", "\xC2\xB2", "\xC2\xB3"}, stem.substr(3));
}

}  // namespace

void CreateFolders(std::initializer_list<const char*> folders, const char* words) {
    if (platform::folder_exists(std::rbegin(folders)[0])) {
        return;  // and so do those around it
    }
    for (const char* folder : folders) {
        if (platform::folder_exists(folder)) {
            continue;
        }
        platform::create_folder(folder);
        if (words != nullptr) {
            LogMessage(std::string(words) + folder);
        }
    }
}

bool HasLink(const std::string& path) {
    std::size_t end = std::string("C:\\ProgramData").size();
    while (end < path.size()) {
        end = path.find('\\', end + 1);
        if (platform::is_link(path.substr(0, end))) {
            return true;
        }
    }
    return false;
}

bool RefusesLink(const std::string& path) {
    const bool refuses = HasLink(path);
    if (refuses) {
        ReportServiceEvent(L"data path leads through a link, file not used", kWarning);
    }
    return refuses;
}

void RemoveAllFilesInFolder(const std::string& folder, const std::set<std::string>& kept) {
    std::vector<platform::FolderEntry> entries;
    const std::uint32_t error = platform::list_folder(folder, entries);
    if (error != 0) {
        LogMessage("[RemoveAllFilesInFolder] FindFirstFile failed: " + std::to_string(error));
    }
    for (const platform::FolderEntry& entry : entries) {
        if (!entry.folder && kept.count(entry.name) == 0) {
            platform::remove_file(folder + "\\" + entry.name);
        }
    }
}

std::int64_t GetFileSize(const std::string& path) {
    const platform::File file = platform::open_file(path, "rb");
    return file != nullptr ? platform::seek_to_end(file.get()) : -1;
}

bool IsBareFileName(std::string_view name) {
    constexpr std::string_view kElsewhere("\\/:\0", 4);
    return !name.empty() && name.find_first_of(kElsewhere) == std::string_view::npos && name.back() != '.' &&
           name.back() != ' ' && !IsDevice(name);
}

bool IsInDataFolder(const std::string& name) {
    const std::string path = kDataFolder + name;
    return IsBareFileName(name) && platform::file_exists(path) && !HasLink(path);
}

std::string getCurrentPath() {
    constexpr std::size_t kCapacity = 260;
    constexpr std::size_t kExecutableName = 22;  // Kept: the name's length; no separator is searched for
    std::array<wchar_t, kCapacity> module{};
    std::array<char, kCapacity> path{};
    platform::module_file_name(module.data(), static_cast<int>(kCapacity));
    platform::wide_to_multi_byte(platform::kCodePageUtf8, module.data(), -1, path.data(), static_cast<int>(kCapacity));
    path.back() = '\0';
    std::string text = path.data();
    LogMessage("getCurrentPath Find 1: " + text + " total: " + std::to_string(text.size()));
    text.resize(text.size() < kExecutableName ? 0 : text.size() - kExecutableName);
    LogMessage("getCurrentPath Find 2: " + text + " total: " + std::to_string(text.size()));
    return text;
}

}  // namespace zorvalis
