// The scheduled tasks and the passes that they start.
#pragma once

#include <chrono>
#include <set>
#include <string>

namespace zorvalis {

// The executables that tasks of the product start, in the form of ExecutableOf.
std::set<std::wstring> ExecutablesOfTasks();

void DeleteTasks();  // those that are there

// Waits until no process runs one of the executables, and ends those that still run after the limit.
void EndPasses(const std::set<std::wstring>& executables, std::chrono::seconds limit);

}  // namespace zorvalis
