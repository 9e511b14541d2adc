// The service's entry in the service manager's database, for the administrator's command. Results and failures are
// printed on the standard output and not returned.
#pragma once

#include <cstdint>

namespace zorvalis {

inline constexpr wchar_t kServiceName[] = L"Zorvalis";

// Registers the running executable. `startType` 2 starts it with Windows; without an account it is LocalSystem.
void InstallService(const wchar_t* name, const wchar_t* displayName, std::uint32_t startType,
                    const wchar_t* dependencies, const wchar_t* account, const wchar_t* password);

// Stops the service and removes its entry, also when the service does not stop.
void UninstallService(const wchar_t* name);

}  // namespace zorvalis
