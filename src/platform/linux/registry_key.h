// The registry's keys as folders of the stand-in machine: finding names in any case, and the lock that lets one writer
// at a time into a folder, in this process and in others. The lock is flock on the folder itself, so there is no lock
// file. The folders of scheduled tasks and services use the same functions. Failures leave errno. Any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "platform/stand_in/descriptor.h"

namespace platform {

// The file that a value is written to before it is renamed. The folder's lock allows one writer, so one name is enough;
// the next write overwrites what a killed process left.
inline constexpr char kTemporary[] = ".new";

using KeyParts = std::vector<std::string>;

// The folder names of a key, its root first; nothing for a key that cannot be a folder (an empty part, a slash).
std::optional<KeyParts> key_parts(RegistryRoot root, const std::wstring& key);

// The file name of a value; empty when the name cannot be a file's.
std::string value_file(const std::wstring& value);

enum class KeyEntry { subkey, value };

struct KeyEntries {
    std::vector<std::string> subkeys, values;
};

// The names of all that an open key holds; nothing, with errno set, when the folder cannot be listed.
std::optional<KeyEntries> key_entries(int folder);

// The name as the folder holds it, in any case of letters; empty when it does not. Nothing, with errno set, when the
// folder cannot be listed.
std::optional<std::string> find_entry(int folder, const std::string& name, KeyEntry kind);

// Locks the folder, until `folder` is closed, and makes or replaces a value's file. 0, or an errno; ENOENT means that
// the folder has been deleted.
int write_entry(int folder, const std::string& name, const std::string& text);

// The path of a key whose folders have the names as they are given.
std::string key_path(const KeyParts& parts);

// Opens a key, without locking it. With `make`, missing keys are made; ENOENT then means that another program deleted
// one at that moment, and the caller may try again.
Descriptor open_key(const KeyParts& parts, bool make);

// One writer, or many readers; the lock is held until the descriptor is closed. Waits without limit.
bool lock_key(int folder);
bool lock_key_shared(int folder);

}  // namespace platform
