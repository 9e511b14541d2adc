// The registry as the product uses it: every value reads as text, and a failed read is the text "ERROR_READREG", with
// which callers compare before they parse. Any thread may call. Kept: on Windows a successful read or write leaves its
// key's handle open for the life of the process.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace zorvalis {

using platform::RegistryRoot;

inline constexpr RegistryRoot kLocalMachine = RegistryRoot::local_machine;

inline constexpr wchar_t ERROR_READREG[] = L"ERROR_READREG";

// Keys under HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kProductKey[] = L"SOFTWARE\\Zorv\\Zorvcore\\Zorvalis";
inline constexpr wchar_t kConfigKey[] = L"SOFTWARE\\Zorv\\Config";
inline constexpr const wchar_t* kOwnConfigValues[] = {L"RandomUUID", L"SN", L"NvramFail"};  // the service's own there
inline constexpr wchar_t kFactoryConfigKey[] = L"SOFTWARE\\Zorv\\FactoryConfig";
inline constexpr wchar_t kSetupStateKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Setup\\State";

// ERROR_READREG when the key or value is missing, has the other type, or is a text of more than 254 characters. A
// number reads as decimal text.
std::wstring ReadRegString(RegistryRoot root, std::wstring key, std::wstring value);
std::wstring ReadRegDword(RegistryRoot root, std::wstring key, std::wstring value);

// True on success. A write makes missing keys.
bool WriteRegString(RegistryRoot root, std::wstring key, std::wstring value, std::wstring data);
bool WriteRegDword(RegistryRoot root, std::wstring key, std::wstring value, std::uint32_t data);
bool DeleteRegValue(RegistryRoot root, std::wstring key, std::wstring value);
bool DeleteRegKey(RegistryRoot root, std::wstring key);

// Returns after a change of the key or of anything below it, by any process. Kept: when the key cannot be opened it
// returns at once, so a caller in a loop then takes a whole processor; on the stand-in machine it takes a second.
void WaitRegKeyChange(RegistryRoot root, std::wstring key);

}  // namespace zorvalis
