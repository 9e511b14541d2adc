// Pieces of steps that need a process of their own: one that is killed, that runs as somebody else, or as a service.
#pragma once

#include <string>
#include <vector>

namespace zorvalis::acceptance {

// A part in a namespace's scope is found by its name; `run` gets the words behind it and returns the exit code.
struct Part {
    using Run = int(const std::vector<std::string>& arguments);

    Part(const char* partName, Run* partRun);

    const char* name;
    Run* run;
    const Part* next;
};

// Prints a line at once, for a step that waits for it.
void Say(const std::string& line);

// The command line that runs it in a copy of this program, or in the kit's own.
std::string PartCommand(const std::string& name, const std::vector<std::string>& arguments = {},
                        const std::string& program = "");

// Whether the words of the command line ask for a part; if so it has run, with this code.
bool RunPart(const std::vector<std::string>& words, int& code);

}  // namespace zorvalis::acceptance
