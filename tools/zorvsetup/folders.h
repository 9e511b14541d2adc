// The folders of the product's records: made with access lists of their own before the service first runs, and mended
// where an ordinary user was first.
#pragma once

#include <string>
#include <vector>

namespace zorvalis {

// Makes C:\ProgramData\Zorv and Zorvcore, which administrators may write and users read, and the product's folder
// below, which is for SYSTEM and administrators alone with all that lies in it. What is there already is mended; what
// an ordinary user has put into the product's folder is moved aside. Refuses a link on the way.
// Returns those that it has made.
std::vector<std::wstring> PrepareFolders();

// Deletes the product's folder and what was moved aside, follows no link, and goes on behind what cannot be deleted;
// then the two folders above where they are empty.
void DeleteFolders();

// Deletes those that are empty, from the last to the first.
void DeleteEmptyFolders(const std::vector<std::wstring>& folders);

}  // namespace zorvalis
