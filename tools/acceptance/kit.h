// Where things lie, and what the machine is. Paths are UTF-8.
#pragma once

#include <string>

namespace zorvalis::acceptance {

// The folder of zorv-acceptance.exe, with the packages and the stand-in hardware library. It ends without a backslash.
std::string KitFolder();

// The package that is tried, and an older one; empty when the kit has none.
std::string NewPackage();
std::string OldPackage();

// Where the packages put the product, without a backslash at the end.
std::string ProgramFolder();
std::string DataFolder();

// Whether the service database has the product; whether it runs from ProgramFolder() as this kit's package installs it.
bool IsRegistered();

bool IsAdministrator();

// Wine stubs much of what the steps try. A step asks only where it cannot see that itself.
bool IsWine();

// The words of Windows for one of its error numbers, with the number.
std::string ErrorText(unsigned long error);

}  // namespace zorvalis::acceptance
