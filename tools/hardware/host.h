// Answers from the machine that the library really runs on, for "source": "host".
#pragma once

#include <string_view>

#include "line.h"

namespace zorvalis {

// Adds the host's answer for the export `name` as plain words or digits. False when the host has none; `answer` may
// then hold a part. `root` is put before each path that is read.
bool AskHost(const char* root, std::string_view name, Line& answer);

}  // namespace zorvalis
