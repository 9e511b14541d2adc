// A program that runs beside its step, as this administrator or as somebody else, and a part of the kit that does.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "part.h"
#include "platform/windows/handles.h"
#include "step.h"

namespace zorvalis::acceptance {

// Ends with its object. Its step's process ends it too.
class RunningProgram {
public:
    // `token` may be null; `folder` is the current folder, empty for this process's.
    explicit RunningProgram(const std::string& command, HANDLE token = nullptr, const std::string& folder = "");
    ~RunningProgram() { Kill(); }
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    bool started() const { return process_ != nullptr; }
    DWORD error() const { return error_; }  // why it was not started

    // The next line of what it writes, without its end; what is left when it has ended or the time is over.
    std::string Line(int seconds = 20);

    // False when it has not ended in time. `output` is what it has written since the last line.
    bool Wait(int seconds, std::string& output, DWORD& code);

    // Ends it and waits until Windows has taken back all that it held.
    void Kill();

private:
    // Takes what it has written; false when it has ended and nothing is left.
    bool Read();

    platform::OwnedHandle process_;
    platform::OwnedHandle pipe_;
    std::string text_;
    DWORD error_ = 0;
};

// A part of the kit (part.h) that serves, or calls, while its step looks on.
class PartProcess : public RunningProgram {
public:
    // Waits until the part is ready; one that is not ends the step.
    PartProcess(Findings& findings, const std::string& part, const std::vector<std::string>& arguments);

    // Its exit code; -1 when it still runs after this time.
    int CodeOf(int seconds);
};

// In the part: lets its step go on.
void TellReady();

}  // namespace zorvalis::acceptance
