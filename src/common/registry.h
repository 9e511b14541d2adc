// The registry as the system uses it: every value reads as text, and a failed read is the text "ERROR_READREG", which
// callers compare with before they parse.
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
inline constexpr wchar_t kFactoryConfigKey[] = L"SOFTWARE\\Zorv\\FactoryConfig";
inline constexpr wchar_t kSetupStateKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Setup\\State";

// A value has one type: a number does not read as a string, nor a string as a number.
std::wstring ReadRegString(RegistryRoot root, std::wstring key, std::wstring value);
std::wstring ReadRegDword(RegistryRoot root, std::wstring key, std::wstring value);

bool WriteRegString(RegistryRoot root, std::wstring key, std::wstring value, std::wstring data);
bool WriteRegDword(RegistryRoot root, std::wstring key, std::wstring value, std::uint32_t data);
bool DeleteRegValue(RegistryRoot root, std::wstring key, std::wstring value);
bool DeleteRegKey(RegistryRoot root, std::wstring key);

// Returns after a change of the key or of anything below it. When the key cannot be opened it returns at once, so that
// a caller in a loop spins for as long as that lasts; on the stand-in machine it takes a second then.
void WaitRegKeyChange(RegistryRoot root, std::wstring key);

}  // namespace zorvalis
