// A process that a step starts and ends: a part of the kit that serves, or calls, while the step looks on.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "platform/windows/handles.h"
#include "step.h"

namespace zorvalis::acceptance {

class PartProcess {
public:
    // Starts the part with the words behind those that TellReady takes, and waits until it is ready. A part that is not
    // ready within half a minute ends the step.
    PartProcess(Findings& findings, const std::string& part, const std::vector<std::string>& arguments);

    // Ends the process, whatever it does.
    ~PartProcess();
    PartProcess(const PartProcess&) = delete;
    PartProcess& operator=(const PartProcess&) = delete;

    // As the task manager ends it, without a word to anybody. It has ended when this returns.
    void Kill();

    // False when it still runs after this time.
    bool WaitForEnd(int seconds, DWORD& code);

    HANDLE process() const { return process_.get(); }

private:
    platform::OwnedHandle process_;
};

// In the part, with the words that it was started with: takes its own two off, and says that it is ready.
class Readiness {
public:
    explicit Readiness(const std::vector<std::string>& arguments);

    void Tell() const { ::SetEvent(event_.get()); }

    // Until the process that has started the part has ended, which also ends the part.
    void WaitForParent(int seconds) const;

    std::vector<std::string> arguments;

private:
    platform::OwnedHandle event_;
    platform::OwnedHandle parent_;
};

}  // namespace zorvalis::acceptance
