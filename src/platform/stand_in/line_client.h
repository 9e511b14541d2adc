// The other end of a LineServer: one connection to a socket in the machine's run folder, for one thread.
#pragma once

#include <string>

#include "platform/stand_in/descriptor.h"

namespace platform {

class LineClient {
public:
    // False when nobody listens there. Each wait takes at most `seconds`; 0 is no limit.
    bool open(const std::string& name, int seconds);

    int process() const;  // the listener's process id; 0 when the kernel does not tell

    bool send(const std::string& line);

    // False when the time was over (errno is EAGAIN then) or the other end is gone.
    bool receive(std::string& line);

private:
    Descriptor socket_;
    std::string in_;
};

}  // namespace platform
