// What the service commands need of the side on which they run. Linux: the service is a process that this tool starts,
// on a stand-in machine, which keeps what the service reported. Windows: the service manager starts it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/service.h"

namespace zorvalis {

enum class Ground { foreground, background };

class StartedService {
public:
    // Linux: the executable that the service registered, in the foreground with this tool's output, or detached with
    // its output in a file. Throws a Failure.
    StartedService(const std::string& name, Ground ground);

    // Windows: when the status says so.
    bool HasEnded(const platform::ServiceStatus& status);

    // Until its process has ended; whoever asks this tool to end asks the service to stop.
    void WaitForEnd();

    // How the process ended, where it was against its will; else empty.
    std::string Death() const;

    // Whether it said anything at all.
    bool HasReported() const;

    // The file that its output goes to, empty for none.
    const std::string& Output() const { return output_; }

private:
    int process_ = 0;
    int result_ = 0;
    std::uintmax_t reportsBefore_ = 0;  // of other runs, in bytes
    std::string output_;
};

// Linux: the process that takes the machine's controls, so that its end can be waited for.
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

// When the service last came into the state, in seconds since 1970; 0 where nobody has kept it.
double InStateSince(std::uint32_t state);

// Sends a control to the service of a stand-in machine, as JSON. False when no service runs; an answer that got lost is
// empty.
bool SendControl(const std::string& control, std::string& answer);

}  // namespace zorvalis
