// Programs that the kit starts as somebody else: another user, this user with a low label, or in an app container.
#pragma once

#include <windows.h>

#include <string>

#include "step.h"

namespace zorvalis::acceptance {

// How a stranger ended.
struct StrangersEnd {
    std::string where;  // the call of Windows that failed; empty when the program ran and ended in time
    DWORD code = 0;     // its exit code, or the error of that call
};

// A copy of the kit in C:\ProgramData\zorv-acceptance-copy, which all users and containers may read and run. It is
// deleted with its object.
class OpenCopy {
public:
    explicit OpenCopy(Findings& findings);
    ~OpenCopy() { Remove(); }
    OpenCopy(const OpenCopy&) = delete;
    OpenCopy& operator=(const OpenCopy&) = delete;

    const std::string& Program() const { return program_; }

    static std::wstring Folder();

    // Deletes one that a kit that was ended has left.
    static void Remove();

private:
    std::string program_;
};

// A local user "zorv-acceptance" with a password that nobody knows, in no group but the users'. It is deleted with its
// object.
class OtherUser {
public:
    OtherUser();
    ~OtherUser() { Remove(); }
    OtherUser(const OtherUser&) = delete;
    OtherUser& operator=(const OtherUser&) = delete;

    // Empty when the user is there; else what failed.
    const std::string& Failure() const { return failure_; }

    StrangersEnd Run(const std::string& command) const;

    static void Remove();

private:
    std::string failure_;
    std::wstring password_;
};

// Waits for a program that has been started, and closes its handles.
StrangersEnd WaitForStranger(const PROCESS_INFORMATION& process);

// With the label of what comes from the network.
StrangersEnd RunLow(const std::string& command);

// An app container "zorv-acceptance", with or without the custom capability of that name. Its profile is deleted again.
// `where` is "no app containers" where this Windows has none.
StrangersEnd RunContained(const std::string& command, const wchar_t* capability);
void RemoveContainer();

}  // namespace zorvalis::acceptance
