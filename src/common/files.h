// Folders and small file helpers over the platform floor. Paths are UTF-8 in the form of Windows, with backslashes.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>

namespace zorvalis {

// The product's folder, and the folder of its database files. Both end with a backslash.
inline constexpr char kProductFolder[] = "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\";
inline constexpr char kDataFolder[] = "C:\\ProgramData\\Zorv\\Zorvcore\\Zorvalis\\data\\";

// Makes those of `folders`, each inside the one before, that are missing, and traces `words` and the path for each;
// null traces nothing. A failure is not reported: what is opened there next fails.
void CreateFolders(std::initializer_list<const char*> folders, const char* words);

// Whether the path, or a folder on its way below C:\ProgramData, is a link or junction. The service may write anywhere,
// so a local user could lead it to any file that way: callers do not use such a path. RefusesLink also writes that to
// the event log.
bool HasLink(const std::string& path);
bool RefusesLink(const std::string& path);

// Deletes every file directly in the folder except the names in `kept`. Subfolders stay, and so does a file that cannot
// be deleted.
void RemoveAllFilesInFolder(const std::string& folder, const std::set<std::string>& kept = {});

// The size in bytes, or -1 when the file cannot be opened.
std::int64_t GetFileSize(const std::string& path);

// Whether a name, put behind a folder, names a file directly in that folder. False for paths, streams ("a:b"), devices
// ("NUL"), and names with a last dot or blank, which Windows drops, so that they name another file.
bool IsBareFileName(std::string_view name);

// Whether the data folder has a file of that name. False for anything but a bare name, and for a link.
bool IsInDataFolder(const std::string& name);

// The folder of the running executable with its closing separator. Kept: cuts 22 characters off the executable's path,
// so it is right only for an executable whose name has that length.
std::string getCurrentPath();

}  // namespace zorvalis
