// What the machine that the library really runs on has to say.
#pragma once

#include <string_view>

#include "line.h"

namespace zorvalis {

// Adds the host's answer for an export as bare words or digits; false when the host does not know. `root` is put
// before each path that is read.
bool AskHost(const char* root, std::string_view name, Line& answer);

}  // namespace zorvalis
