// A part of the kit that serves, or calls, while its step looks on.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "kit.h"
#include "part.h"
#include "running_program.h"
#include "step.h"

namespace zorvalis::acceptance {

// In the part: lets its step go on.
inline void TellReady() {
    std::puts("ready");
    std::fflush(stdout);
}

class PartProcess : public RunningProgram {
public:
    // Waits until the part is ready; one that is not ends the step.
    PartProcess(Findings& findings, const std::string& part, const std::vector<std::string>& arguments)
        : RunningProgram(PartCommand(part, arguments)) {
        if (!started()) {
            findings.Fail("the part " + part + " cannot be started: " + ErrorText(error()));
        }
        if (const std::string line = Line(30); line != "ready") {
            DWORD code = 0;
            std::string rest;
            Wait(1, rest, code);
            findings.Fail("the part " + part + " is not ready: " + line + rest + ", " + ErrorText(code));
        }
    }

    // Its exit code; -1 when it still runs after this time.
    int CodeOf(int seconds) {
        DWORD code = 0;
        std::string output;
        return Wait(seconds, output, code) ? static_cast<int>(code) : -1;
    }
};

}  // namespace zorvalis::acceptance
