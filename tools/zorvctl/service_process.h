// What the service commands need of the side on which they run: starting the service as its manager does, and the
// sockets of a stand-in machine, which Windows lacks.
#pragma once

#include <string>

#include "platform/service.h"

namespace zorvalis {

class StartedService {
public:
    // On the stand-in machine the executable at `path`, in the foreground with this tool's output, or detached with its
    // output in the file `log`; on Windows by the service manager, without either. Throws a Failure.
    StartedService(const std::string& name, const std::string& path, const std::string& log);

    // Of its process; on Windows when it is reported as stopped.
    bool HasEnded(const platform::ServiceStatus& status);

    // Until its process has ended; whoever asks this tool to end asks the service to stop.
    void WaitForEnd();

    // How the process ended, where it was against its will; else empty.
    std::string Death() const;

private:
    int process_ = 0;
    int result_ = 0;
};

// The process behind run/control, if there is one, so that its end can be waited for.
class RunningService {
public:
    RunningService();
    ~RunningService();
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

    void WaitForEnd() const;  // not longer than ten seconds

private:
    int process_ = -1;
};

// Sends a line to a socket of the machine, and waits for its answer when one is wanted; a lost answer is empty. False
// when nobody listens.
bool SendToMachine(const std::string& socket, const std::string& line, std::string* answer);

}  // namespace zorvalis
