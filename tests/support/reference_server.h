// The built zorvserver, under the product's host name and an authority of its own. On the stand-in machine it is a
// process of the test's. Windows has none: there ./dev has started one, whose folder the environment names, and the
// test's loopback server is the proxy that leads to it.
#pragma once

#include <string>

#include "support/loopback_server.h"
#include "support/machine.h"

class ReferenceServer {
public:
    explicit ReferenceServer(const TestMachine& machine);
    ~ReferenceServer();
    ReferenceServer(const ReferenceServer&) = delete;
    ReferenceServer& operator=(const ReferenceServer&) = delete;

    // Holds data/, settings/, the authority and the server's log, with its closing separator.
    const std::string& folder() const { return folder_; }

    // From now on the machine trusts the authority.
    void trust();

    // Its lines about requests of this call, any when empty.
    int count(const std::string& call = "") const;

#ifndef _WIN32
    // Shows server.pem or expired.pem.
    void begin(const std::string& certificate = "server");
    int end();  // its exit code

    const std::string tool = built("zorvserver");

private:
    void tell_machine() const;

    int process_ = 0, port_ = 0;
    bool trusted_ = false;
#else
private:
    LoopbackServer proxy_;
#endif
    std::string folder_;
};
