// The HTTP side of the server: takes requests from both listeners, has Calls answer them, spoils the answer when the
// script says so, and prints a line for each request.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <mutex>
#include <string>

#include "calls.h"
#include "script.h"

namespace zorvalis {

class Front {
public:
    Front(Calls& calls, Script& script, bool quiet) : calls_(calls), script_(script), quiet_(quiet) {}

    // Makes `server` give its requests to this object. `scheme` is for the log only.
    void Attach(httplib::Server& server, const char* scheme);

    // Ends the waiting of slow answers and closes their connections. Any thread.
    void Stop();

private:
    void Handle(const httplib::Request& request, httplib::Response& response, const char* scheme);
    // Does what the script says. True when `response` is complete; false when `reply`, perhaps changed, is still to be
    // sent.
    bool Spoil(const Misdeed& misdeed, Reply& reply, const httplib::Request& request, httplib::Response& response);
    void Log(const std::string& scheme, const std::string& call, const Reply& reply, const std::string& outcome);

    Calls& calls_;
    Script& script_;
    bool quiet_;
    std::mutex mutex_;
    std::condition_variable stop_;
    bool stopping_ = false;
};

}  // namespace zorvalis
