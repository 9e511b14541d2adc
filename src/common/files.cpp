#include "common/files.h"

#include <array>
#include <cstring>
#include <vector>

#include "common/log.h"
#include "common/text.h"
#include "platform/files.h"
#include "platform/module.h"
#include "platform/text.h"

namespace zorvalis {

void CreateFolders(std::initializer_list<const char*> folders, const char* words) {
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

std::string getCurrentPath() {
    constexpr std::size_t kCapacity = 260;
    constexpr std::size_t kExecutableName = 22;  // no separator is searched for
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
