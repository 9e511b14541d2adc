// network.json of the stand-in machine: whether it is online, where host names lead, and which authority it trusts
// beside the host's own store. Read at each use; without the file it is online and no host resolves.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

struct Network {
    bool online = true;
    std::string authority;  // path of a file of certificates, or empty
};

Network read_network();

// "address:port" for a host and port; empty when they do not resolve.
std::string resolve_host(const std::string& host, std::uint16_t port);

}  // namespace platform
