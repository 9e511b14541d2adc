// Whether the installed files can be replaced. Windows Installer would lay the new one beside a file that is held, tell
// that the machine has to be started anew, and have the old one run until then.
#pragma once

#include <string>

namespace zorvalis {

// Windows' own folder, or one below. An earlier installation may lie there, among files that are not ours.
bool IsOfWindows(const std::wstring& folder);

// Raises a Failure with the name of a file that somebody holds so that it cannot even be renamed. Virus scanners get a
// few seconds. A program that runs, or is shown by Event Viewer, can be renamed.
void RequireReplaceable(const std::wstring& folder);

}  // namespace zorvalis
