// A registered task as Task Scheduler's own interface shows it, for comparison with what the product registers.
#pragma once

#include <map>
#include <string>

namespace zorvalis::acceptance {

// What a task's definition and registration say, by the names of the interface: "RunLevel" -> "1". Empty, with the
// failed call's HRESULT in `status`, when there is no such task or a part cannot be read.
std::map<std::string, std::string> ViewTask(const std::string& name, long& status);

// Has Task Scheduler start the task now; its HRESULT.
long RunTask(const std::string& name);

}  // namespace zorvalis::acceptance
