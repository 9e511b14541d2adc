// What a step takes out of a package, and a copy of it that fails late.
#pragma once

#include <string>

namespace zorvalis::acceptance {

// Unpacks one file of the package, by its key in the table File. A Windows error, or 0.
unsigned long Unpack(const std::string& package, const std::string& key, const std::string& target);

// A copy whose last step that can fail, the service's start, fails. A Windows error, or 0.
unsigned long CopyThatFails(const std::string& package, const std::string& copy);

}  // namespace zorvalis::acceptance
