// Programs that a step starts, and their output.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis::acceptance {

struct Ended {
    bool started = false;
    bool inTime = false;     // else it was ended, with all that it had started
    std::uint32_t code = 0;  // its exit code; the Windows error when it could not be started
    std::string output;      // both streams, as bytes, at most a megabyte
};

// Waits for the program. `command` is a command line of Windows in UTF-8, its first word quoted where it has blanks.
// RunningProgram (running_program.h) is for one that runs beside the step, or as somebody else.
Ended RunProgram(const std::string& command, int seconds);

// A word of a command line, quoted as Windows' own parser reads it.
std::string Quoted(const std::string& word);

// A program of Windows' own, "msiexec.exe", with its path in quotes.
std::string SystemProgram(const std::string& name);

}  // namespace zorvalis::acceptance
