// The administrator's side of the service: its entry in the service database. Results and failures are printed.
#pragma once

#include <cstdint>

namespace zorvalis {

inline constexpr wchar_t kServiceName[] = L"Zorvalis";

void InstallService(const wchar_t* name, const wchar_t* displayName, std::uint32_t startType,
                    const wchar_t* dependencies, const wchar_t* account, const wchar_t* password);

// Stops the service first. A service that does not stop is removed all the same.
void UninstallService(const wchar_t* name);

}  // namespace zorvalis
