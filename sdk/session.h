// One open context on the service's endpoint, and the calls on it: what the C interface (zorvalis.cpp) is made of. Each
// operating system has its own, session_linux.cpp and session_windows.cpp. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "zorvalis.h"
#include "zorvalis_procedures.h"

namespace zorvalis_client {

// A call that had no answer, with the status that the application gets for it.
class Failure : public std::runtime_error {
public:
    Failure(const std::string& what, std::int32_t code) : std::runtime_error(what), status(code) {}
    const std::int32_t status;
};

class Session {
public:
    // Tries once to open a context, within `limit` milliseconds (0: any time). An empty endpoint is the service's own.
    // Throws Failure, as every call does.
    Session(const ZorvalisCallbacks& callbacks, const std::string& endpoint, std::uint32_t limit);

    // No callback comes any more when it returns. No call runs.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Of calls that begin from now on, in milliseconds; 0: none.
    void SetLimit(std::uint32_t limit);

    // Every call that runs now ends with ZORVALIS_CANCELLED.
    void Cancel();

    // Whether this process was made by fork() after the session was opened: its threads are the parent's, and whatever
    // is done with it here, even destroying it, would disturb the parent's. From any thread, also while another is
    // gone.
    bool IsParents() const;

    // Whether this thread runs a callback of this session, from where the C interface refuses calls.
    bool InCallback() const;

#define DECLARE(answer, name, parameters, ...) answer name parameters;
    ZORVALIS_CALLS(DECLARE)
#undef DECLARE

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace zorvalis_client
