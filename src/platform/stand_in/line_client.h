// The other end of a LineServer: one connection to a socket in the machine's run folder, for one thread.
#pragma once

#include <string>

#include "platform/stand_in/descriptor.h"

namespace platform {

class LineClient {
public:
    // False when nobody listens there. `seconds` is the limit of each wait, 0 for none.
    bool open(const std::string& name, int seconds);

    int process() const;  // the listener's, 0 when it cannot be told

    bool send(const std::string& line);

    // False when the limit was reached, with errno EAGAIN, or the other end is gone.
    bool receive(std::string& line);

private:
    Descriptor socket_;
    std::string in_;
};

}  // namespace platform
