// The process entry: the platform's own main gathers the wide arguments, checks the machine, and calls this.
#pragma once

// Defined by the program.
int program_main(int argc, const wchar_t* const* argv);

namespace platform {

// On Windows only, where the entry does this first; so does a program with an entry of its own. From now on Windows
// loads libraries from beside the executable or from System32, never along PATH or from the current folder, and, where
// it can, does not follow junctions that a user without rights made: the program may run as LocalSystem.
void distrust_users();

}  // namespace platform
