// What the commands of `zorvctl service` ask of Windows or Linux. On Linux this tool plays the service manager: it
// starts the service's process itself, on a stand-in machine, and reads what the service reported from its log. On
// Windows the real service manager starts it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/service.h"

namespace zorvalis {

enum class Ground { foreground, background };

class StartedService {
public:
    // Starts the service. On Linux that is the executable that it registered: in the foreground it shares this tool's
    // output, in the background it is detached and writes to a file. Throws a Failure.
    StartedService(const std::string& name, Ground ground);

    // Linux looks at the process, Windows at `status`.
    bool HasEnded(const platform::ServiceStatus& status);

    // Waits until the service's process has ended. In the foreground, Ctrl-C and requests to end reach the service
    // instead of this tool. Does nothing on Windows.
    void WaitForEnd();

    // In words, the signal or the exit code that ended the process; empty for an orderly end, and on Windows.
    std::string Death() const;

    // Whether the service has reported any state since it was started.
    bool HasReported() const;

    // The file that the service's output goes to; empty in the foreground and on Windows.
    const std::string& Output() const { return output_; }

private:
    int process_ = 0;
    int result_ = 0;
    std::uintmax_t reportsBefore_ = 0;  // the size of the status log at the start
    std::string output_;
};

// The service's process on a stand-in machine, held open so that its end can be waited for. Empty on Windows.
class RunningService {
public:
    RunningService();
    ~RunningService();
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

    void WaitForEnd() const;  // gives up after ten seconds

private:
    int process_ = -1;
};

// When the service entered the state that it is in, in seconds since 1970; 0 on Windows and when the log does not say.
double InStateSince(std::uint32_t state);

// Sends a control to the service of a stand-in machine, as JSON. False when no service runs; an answer that got lost is
// empty.
bool SendControl(const std::string& control, std::string& answer);

}  // namespace zorvalis
