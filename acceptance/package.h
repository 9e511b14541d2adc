// The packages in the hands of Windows Installer, and what of the product is on the machine.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "step.h"

namespace zorvalis::acceptance {

// Runs Windows Installer silently, with `verb` such as "/i" and further words behind the package. Its exit code is in
// the findings, and what its log says of an error; a run that does not end is the step's failure and its end.
std::uint32_t Installer(Findings& findings, const std::string& verb, const std::string& package,
                        const std::string& words = "");

// Expects the exit code; with another one the findings tell of the errors in the log, and where the log is.
bool ExpectInstaller(Findings& findings, std::uint32_t wanted, const std::string& verb, const std::string& package,
                     const std::string& words = "");

// The log of zorvsetup, which does the packages' steps; all that was written until now.
std::string SetupLog();

// The exit code where a step of the package has failed, which Wine's installer says otherwise.
std::uint32_t InstallFailure();

// The code of the installed package.
std::string InstalledCode();

// Ends the step as not possible where the kit has not both packages.
void NeedPackages(Findings& findings);

// The same, and where something of the product is on the machine.
void NeedNoProduct(Findings& findings);

// Ends the step as not possible where the product is there, but was not put there by the kit.
void NeedOwnInstallation(Findings& findings);

// The entry among the installed programs.
struct Program {
    std::string name, version, publisher, key;
};
std::vector<Program> InstalledPrograms();

// What of the product is on the machine, a line each: files, service, event source, folder on the PATH, program entry.
// Records and registry values of the product are not among them.
std::vector<std::string> TracesOfProduct();

// Expects that a failed installation has left none of them.
void ExpectTakenBack(Findings& findings);

// Whether records or settings lie here that the kit has not made, as after a removal that keeps them. The kit would
// delete them at its end.
bool HasOthersRecords();

// The folder of the maker, above the data folder.
std::string MakersFolder();

// Names with contents: the files below the data folder, and the values of the product's key but those that the service
// writes by itself at its start and two minutes later.
std::map<std::string, std::string> Records();
std::map<std::string, std::string> Settings();

// Expects that both are the same; names what is new, gone or changed.
void ExpectSame(Findings& findings, const std::map<std::string, std::string>& before,
                const std::map<std::string, std::string>& after, const std::string& what);

// What was recorded of the user's behaviour, as the installed zorvctl reads it: the numbers of JobTrigger, " 10 14".
std::string Behavior(Findings& findings);

// How often the machine's PATH has the product's folder.
int TimesOnPath();

// A value under HKEY_LOCAL_MACHINE as text; empty when it is missing or no text.
std::string MachineText(const std::wstring& key, const std::wstring& value);

inline constexpr wchar_t kEventSourceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Zorvalis";

// The stand-in hardware library beside the installed executable, and away again; in it goes hardware.json.
bool PutHardwareLibrary();
void TakeHardwareLibrary();

}  // namespace zorvalis::acceptance
