// What FileText asks of each operating system. Paths are UTF-8.
#pragma once

#include <cstdint>
#include <cstdio>

#include "file_text.h"

namespace zorvalis {

// Add a folder with its closing slash: the machine's, and the one that the library was loaded from. False when there is
// none.
bool AddMachineFolder(Line& path);
bool AddOwnFolder(Line& path);

// Reads a file of at most a megabyte into memory that the caller frees. False when there is none; `data` stays null
// when it cannot be read or is larger.
constexpr std::size_t kLargest = std::size_t{1} << 20;
bool ReadWhole(const char* path, char*& data, std::size_t& size);

// Opens a new file to be written; null on failure.
std::FILE* Create(const char* path);

// Puts `fresh` in the place of `path`, with the rights of the old file. Deletes `fresh` when that fails.
bool MoveInto(const char* fresh, const char* path);

// Waits until no other process changes the file; on Windows, until none reads it either. -1 when there is nothing to
// wait for.
std::intptr_t TakeTurn(FileText::Purpose purpose, const char* path);
void EndTurn(std::intptr_t turn);

}  // namespace zorvalis
