// Where things lie, what the machine is, and what the kit keeps while it runs. Paths and texts are UTF-8.
#pragma once

#include <string>

namespace zorvalis::acceptance {

// The folder of zorv-acceptance.exe, with the packages and the stand-in hardware library. It ends without a backslash.
std::string KitFolder();

// The package that is tried, and an older one, whose name ends with "-old.msi"; empty when the kit has none.
std::string NewPackage();
std::string OldPackage();

// Where the packages put the product, without a backslash at the end.
std::string ProgramFolder();
std::string DataFolder();

// Whether the service database has the product.
bool IsRegistered();

// What must outlive a step, and the kit if it is ended or the machine restarts: bytes by name, in the registry under
// HKEY_LOCAL_MACHINE\SOFTWARE\zorv-acceptance. The key goes with the last name.
void Keep(const std::string& name, const std::string& bytes);  // raises std::runtime_error when it cannot
std::string Kept(const std::string& name);                     // empty when there is none
void Forget(const std::string& name);

// Kept while the product is on this machine because the kit has put it there: only then may the kit change or remove
// it.
inline constexpr char kOwnInstallation[] = "installed by the kit";

// What step 9.1 keeps over a restart of Windows.
inline constexpr char kBeforeRestart[] = "what was recorded before the restart";

bool IsAdministrator();

// Switches a right on that this process's user has, L"SeDebugPrivilege".
bool EnableRight(const wchar_t* name);

// Wine stubs much of what the steps try. A step asks only where it cannot see that itself.
bool IsWine();

// The words of Windows for one of its error numbers, with the number.
std::string ErrorText(unsigned long error);

}  // namespace zorvalis::acceptance
