// network.json of the stand-in machine: whether it is online, where host names lead, and which authority it trusts
// beside those of the Linux host. Read at each use; without the file the machine is online and no host resolves. Any
// thread.
#pragma once

#include <optional>
#include <string>

namespace platform {

struct Network {
    bool online = true;
    std::string address;                   // "address:port" where the server lies; empty when it does not resolve
    std::optional<std::string> authority;  // its certificates, as PEM; empty when their file cannot be read
};

// `server` is "host:port"; without one only `online` is found out.
Network read_network(const std::string& server = "");

}  // namespace platform
