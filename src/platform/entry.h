// The process entry. Each side has its own main, which passes the arguments on as wide text and ends the process with
// the result, without running destructors of statics. On Windows it first protects the process (distrust_users); on
// Linux it first checks the stand-in machine's folder, and ends with 0 when that cannot be used.
#pragma once

// Defined by each program. `argv` ends with a null pointer.
int program_main(int argc, const wchar_t* const* argv);

namespace platform {

// On Windows only: protects a process that runs as LocalSystem from files that ordinary users can place. The first call
// of wmain, also of a program with a wmain of its own. From now on Windows loads libraries only from beside the
// executable and from System32, not from PATH or the current folder, and, where it knows the policy, does not follow
// junctions that a user without rights has made.
void distrust_users();

}  // namespace platform
