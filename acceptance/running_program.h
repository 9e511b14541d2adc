// A program that runs beside its step, as this administrator or as an ordinary user.
#pragma once

#include <windows.h>

#include <string>

#include "platform/windows/handles.h"
#include "step.h"

namespace zorvalis::acceptance {

// A copy of this process's token without the rights of an administrator, such as Windows gives to the programs of an
// administrator who has not been asked. What is made with it belongs to the user. Ends the step when there is none.
platform::OwnedHandle UserToken(Findings& findings, TOKEN_TYPE type = TokenPrimary);

// The user of a token, "S-1-5-21-...".
std::wstring UserOf(HANDLE token);

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

}  // namespace zorvalis::acceptance
