// Folders and small file helpers over the platform floor. Paths are UTF-8 in the system's form, with backslashes.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>

namespace zorvalis {

// The product's folder and the folder of its database files, each with its closing backslash.
inline constexpr char kProductFolder[] = "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\";
inline constexpr char kDataFolder[] = "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\data\\";

// Makes what is missing of `folders`, in their order; logs `words` and the path for each. A failure shows in whatever
// is opened there next. Without `words` nothing is logged.
void CreateFolders(std::initializer_list<const char*> folders, const char* words);

// Whether the path, or a folder on its way below C:\ProgramData, is a link: it leads one who may write anywhere to
// where its maker wants him. Such a file is not used; RefusesLink says so in the event log.
bool HasLink(const std::string& path);
bool RefusesLink(const std::string& path);

// Deletes every file directly in the folder, a path of the "C:\\" form, but the names in `kept`. Subfolders stay, and
// so does a file that cannot be deleted.
void RemoveAllFilesInFolder(const std::string& folder, const std::set<std::string>& kept = {});

// The size in bytes, or -1 when the file cannot be opened.
std::int64_t GetFileSize(const std::string& path);

// Whether a name, put behind a folder, is that of a file directly in it and of nothing else: no path, stream or device,
// and not short of an ending that Windows drops.
bool IsBareFileName(std::string_view name);

// Whether the data folder has a file of that bare name, reached through no link. Any other is not there.
bool IsInDataFolder(const std::string& name);

// The folder of the running executable with its closing separator, for an executable whose name has 22 characters.
std::string getCurrentPath();

}  // namespace zorvalis
