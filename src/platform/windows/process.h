// What a process that runs as LocalSystem must not trust. First thing in the entry of a program.
#pragma once

namespace platform {

// From now on libraries come from beside the executable or from System32, never along PATH or from the current folder,
// and, where Windows has it, junctions that a user without rights made are not followed.
void distrust_users();

}  // namespace platform
