// The machine's JSON files, and the files to which several processes append lines. Any thread.
#pragma once

#include <optional>

#include "base/json.h"
#include "platform/stand_in/descriptor.h"

namespace platform {

// Nothing when the file is missing or no JSON object.
std::optional<zorvalis::Json> read_machine_json(const char* name);

// Opens a file of the machine for appending, and makes it if it is missing. A line is one call of write_whole: so the
// lines of several processes do not mix.
Descriptor open_lines(const char* name);

// Appends the object as a line.
bool append_json(const char* name, const zorvalis::Json& line);

}  // namespace platform
