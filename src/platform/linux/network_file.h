// network.json of the stand-in machine: whether it is online, where host names lead, and which authority it trusts
// beside those of the Linux host. Read at each use; without the file the machine is online and no host resolves. Any
// thread.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

struct Network {
    bool online = true;
    std::string authority;  // absolute path of a PEM file of certificates, or empty
};

Network read_network();

// "address:port" for a host and port; empty when they do not resolve.
std::string resolve_host(const std::string& host, std::uint16_t port);

}  // namespace platform
