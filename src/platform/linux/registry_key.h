// The registry's keys as folders of the stand-in machine: their names in any case, and the lock that serialises the
// writers of one folder, in this process and in others. The folder itself is locked, so no lock file exists. The
// scheduled tasks' folder is treated in the same way.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "platform/stand_in/descriptor.h"

namespace platform {

// Where a value is written before it takes its name. One name for a folder is enough under the folder's lock, and
// what a killed process left is used up by the next write.
inline constexpr char kTemporary[] = ".new";

using KeyParts = std::vector<std::string>;

// The folder names of a key, its root first; nothing for a key that can have no folder.
std::optional<KeyParts> key_parts(RegistryRoot root, const std::wstring& key);

// The file name of a value; empty for one that can have no file.
std::string value_file(const std::wstring& value);

enum class KeyEntry { subkey, value };

// The names of all subkeys or all values of an open key; nothing when the folder cannot be listed.
std::optional<std::vector<std::string>> key_entries(int folder, KeyEntry kind);

// The name under which the folder holds `name`, in whatever case; empty when it does not. Nothing when that cannot be
// told, with errno set.
std::optional<std::string> find_entry(int folder, const std::string& name, KeyEntry kind);

// Replaces a value's file, or makes it, under the folder's lock, which stays. 0, or the error; ENOENT when the folder
// has been deleted.
int write_entry(int folder, const std::string& name, const std::string& text);

// An open key, without its lock. With `make`, missing keys are made; ENOENT then says that a key went away at the
// same time, and the call is to be made again.
Descriptor open_key(const KeyParts& parts, bool make);

// Held until the descriptor is closed.
bool lock_key(int folder);
bool lock_key_shared(int folder);

}  // namespace platform
